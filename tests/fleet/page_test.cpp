// The page's files in the program are those of the tree, all of them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "page/Page.h"

namespace Fleet {

namespace {

TEST( Page, isCarriedAsItStands ) {
   std::size_t files = 0;
   for( auto const & entry : std::filesystem::directory_iterator( RATEMON_SOURCE_DIR "/fleet/page" ) ) {
      std::filesystem::path const path = entry.path();
      auto const carried = pageFile( "/" + path.filename().string() );
      bool const ofThePage = path.extension() == ".html" || path.extension() == ".css" || path.extension() == ".js" ||
                             path.extension() == ".svg";
      ASSERT_EQ( carried.has_value(), ofThePage ) << path;
      if( !carried ) continue;
      ++files;
      std::ifstream in( path, std::ios::binary );
      EXPECT_EQ( std::string( std::istreambuf_iterator<char>( in ), {} ), carried->bytes ) << path;
   }
   EXPECT_GT( files, 8u );
   EXPECT_EQ( pageFile( "/" )->bytes, pageFile( "/index.html" )->bytes );
   EXPECT_EQ( pageFile( "/main.js" )->contentType, "text/javascript; charset=utf-8" );
   EXPECT_FALSE( pageFile( "/../page/main.js" ) );
   EXPECT_FALSE( pageFile( "" ) );
}

}  // namespace

}  // namespace Fleet
