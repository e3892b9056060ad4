// The fixture of tests about the ring trace: the smallest ring, on a virtual clock, and a folder for files.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "brisklog/Brisklog.h"
#include "kel/ActivityLoop.h"

namespace Test {

constexpr std::size_t smallest = Brisklog::ringBytesMin;

class RingTest : public testing::Test {
 protected:
   RingTest() { Brisklog::ringIs( Brisklog::RingFile::anonymous( smallest ) ); }
   ~RingTest() override {
      Brisklog::levelsIs( { 0, 1, 3, 4, 8 } );
      Brisklog::tapIs( {} );
      Brisklog::ringIs( Brisklog::RingFile::anonymous( smallest ) );
      std::filesystem::remove_all( folder );
   }

   std::string bytesOf( std::string const & file ) const {
      std::ifstream in( file, std::ios::binary );
      std::ostringstream bytes;  // byte by byte would take seconds under sanitizers
      bytes << in.rdbuf();
      return bytes.str();
   }
   void fileIs( std::string const & file, std::string const & bytes ) const {
      std::ofstream( file, std::ios::binary ) << bytes;
   }

   Kel::Ptr<Kel::VirtualClock> clock = new Kel::VirtualClock( 1000 );
   Kel::ActivityLoop loop{ clock };
   std::string const folder = [] {
      std::string name = testing::TempDir() + "ringXXXXXX";
      EXPECT_NE( mkdtemp( name.data() ), nullptr );
      return name;
   }();
   std::string const path = folder + "/ring";
};

}  // namespace Test
