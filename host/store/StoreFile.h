// The store's file and its directory, before SQLite sees them.
//
// SQLite takes what it is given: it would make a store of an empty file, follow a link, roll back what another program
// left half done, and replay a log that belongs to a file which is not there any more. So what a file is is found out
// first, by reading its first bytes, and a new one is made under another name: what bears the store's name is whole.
#pragma once

#include <cstdint>
#include <string>

namespace Host::StoreFile {

constexpr uint32_t applicationId = 0x524d6f6e;  // "RMon"
// 1: rows of monitors have all of their numbers.
constexpr uint32_t layout = 2;

// Whether there is a file for SQLite to open. Throws StoreError when what is there is no store of ours, or of a newer
// maintd, or when a log without its file is there.
[[nodiscard]] bool isThere( std::string const & path );

// Makes the directory with mode 0750, where it is not there, and in it an empty file with mode 0640 under the name that
// is returned, for a store to be made in it. Throws StoreError.
[[nodiscard]] std::string begin( std::string const & path );

// Gives the file that begin() has made its name. On disk when it returns: SQLite sees to the contents of its files and
// to the entry of its log, while the entry of the file itself would be lost with the power. Throws StoreError.
void finish( std::string const & path );

}  // namespace Host::StoreFile
