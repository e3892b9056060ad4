// The page of a fleet, for browsers: its files, as they stand beside this header, carried in the program.
//
// They are the same for every fleet, read what the owner's API gives, and ask nobody else. What the page may do is in
// its own policy, at the head of index.html, but for the one thing that only a header can say: `pageFramePolicy`.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace Fleet {

struct PageFile {
   std::string_view bytes;        // for as long as the program runs
   std::string_view contentType;  // "text/html; charset=utf-8"
};

// To be sent with each as "Content-Security-Policy": no other page may show this one inside itself, and so have
// somebody press a button that he does not see.
constexpr std::string_view pageFramePolicy = "frame-ancestors 'none'";

// "/" is index.html; absent where there is no such file.
[[nodiscard]] std::optional<PageFile> pageFile( std::string_view path );

// As the build has them.
struct NamedPageFile {
   std::string_view path;  // "/main.js"
   std::string_view bytes;
};
[[nodiscard]] std::span<NamedPageFile const> pageFiles();

}  // namespace Fleet
