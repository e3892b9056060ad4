// A directory of a test's own, gone with it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace Host {

class TempDir {
 public:
   TempDir() {
      std::string pattern = ( std::filesystem::temp_directory_path() / "ratemon-XXXXXX" ).string();
      EXPECT_NE( mkdtemp( pattern.data() ), nullptr );
      path_ = pattern;
   }
   TempDir( TempDir const & ) = delete;
   TempDir & operator=( TempDir const & ) = delete;
   ~TempDir() { std::filesystem::remove_all( path_ ); }

   [[nodiscard]] std::string operator/( std::string const & name ) const { return path_ + "/" + name; }

 private:
   std::string path_;
};

inline std::string contentOf( std::string const & path ) {
   std::ifstream file( path, std::ios::binary );
   return { std::istreambuf_iterator<char>( file ), {} };
}

inline void contentIs( std::string const & path, std::string const & content ) {
   std::ofstream( path, std::ios::binary | std::ios::trunc ) << content;
}

}  // namespace Host
