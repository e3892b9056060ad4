// The keys with which operators change something over the network: a file with a line for each, "alice KEY".
//
// Blank lines and lines that begin with '#' are passed over. Not written into any log. A file without any key holds,
// and lets nobody in: whoever takes the last line out wants just that.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Fleet {

class Keys {
 public:
   static constexpr std::size_t leastBytes = 16;  // of a key; a shorter one can be tried out

   // Throws std::runtime_error, which names the file, where it cannot be read, others can read it too, or a line holds
   // no name and key.
   static Keys inFile( std::string const & path );
   // The same of its text.
   Keys( std::string_view text, std::string const & fileName );

   [[nodiscard]] bool empty() const { return keys_.empty(); }
   // Whose key the field "Authorization: Bearer KEY" has; absent: nobody's. Takes as long whatever is wrong with it.
   [[nodiscard]] std::optional<std::string> ownerOf( std::string_view authorization ) const;

 private:
   struct Key {
      std::string name;
      std::string digest;
   };
   std::vector<Key> keys_;
};

}  // namespace Fleet
