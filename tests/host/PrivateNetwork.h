// A network of the test's own: every case runs in a fresh network namespace, in which it makes and changes links with iproute2. No
// link of the machine is seen or touched, and nothing is left behind. Needs no rights of root where the kernel lets any user
// have namespaces; where it does not, the case fails.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

class PrivateNetwork : public testing::Test {
 protected:
   void SetUp() override {
      ASSERT_TRUE( unshared() ) << "this test needs a network namespace of its own, which the kernel refuses: "
                                << std::strerror( errno );
      // The kernel's own chatter would be counted among the octets.
      std::ofstream( "/proc/sys/net/ipv6/conf/default/disable_ipv6" ) << 1;
   }

   // Runs lines for iproute2, as "link add name v0 type veth peer name v1\nlink set v0 up".
   static void ip( std::string const & lines ) {
      std::unique_ptr<FILE, int ( * )( FILE * )> const batch( popen( "ip -batch -", "w" ), pclose );
      ASSERT_TRUE( batch );
      std::fputs( ( lines + "\n" ).c_str(), batch.get() );
      ASSERT_EQ( pclose( const_cast<std::unique_ptr<FILE, int ( * )( FILE * )> &>( batch ).release() ), 0 ) << lines;
   }

   // What "ip -json <arguments>" answers.
   static boost::json::array ask( std::string const & arguments ) {
      std::unique_ptr<FILE, int ( * )( FILE * )> const answer( popen( ( "ip -json " + arguments ).c_str(), "r" ), pclose );
      std::string text;
      for( int c = std::fgetc( answer.get() ); c != EOF; c = std::fgetc( answer.get() ) ) text += static_cast<char>( c );
      return boost::json::parse( text ).as_array();
   }
};
