#include "page/Page.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Fleet {

namespace {

constexpr std::array contentTypes{
   std::pair<std::string_view, std::string_view>( ".html", "text/html; charset=utf-8" ),
   std::pair<std::string_view, std::string_view>( ".css", "text/css; charset=utf-8" ),
   std::pair<std::string_view, std::string_view>( ".js", "text/javascript; charset=utf-8" ),
   std::pair<std::string_view, std::string_view>( ".svg", "image/svg+xml" ) };

}  // namespace

std::optional<PageFile> pageFile( std::string_view path ) {
   if( path == "/" ) path = "/index.html";
   auto const files = pageFiles();
   auto const file = std::ranges::find( files, path, &NamedPageFile::path );
   if( file == files.end() ) return std::nullopt;
   auto const * const type =
      std::ranges::find_if( contentTypes, [&]( auto const & known ) { return path.ends_with( known.first ); } );
   if( type == contentTypes.end() ) return std::nullopt;
   return PageFile{ file->bytes, type->second };
}

}  // namespace Fleet
