// A network of the test's own: every case runs in a fresh network namespace, in which it makes and changes links with
// iproute2. No link of the machine is seen or touched, and nothing is left behind. Needs no rights of root where the
// kernel lets any user have namespaces; where it does not, the case fails.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

class PrivateNetwork : public ::testing::Test {
 protected:
   void SetUp() override {
      ASSERT_TRUE( entered() ) << "this test needs a network namespace of its own, and the kernel refuses it: "
                               << std::strerror( errno );
      // Otherwise the kernel's own packets would be among the octets.
      std::ofstream( "/proc/sys/net/ipv6/conf/default/disable_ipv6" ) << 1;
   }

   // Has iproute2 carry out these lines, as "link set v0 up". Throws when one fails.
   static void ip( std::string const & lines ) { carryOut( "ip", lines ); }
   // The same for bridges, as "vlan add dev v0 vid 20".
   static void bridge( std::string const & lines ) { carryOut( "bridge", lines ); }

   // What "ip -json <arguments>" answers.
   static boost::json::array ask( std::string const & arguments ) {
      FILE * const answer = popen( ( "ip -json " + arguments ).c_str(), "r" );
      std::string text;
      for( int c = std::fgetc( answer ); c != EOF; c = std::fgetc( answer ) ) text += static_cast<char>( c );
      if( pclose( answer ) != 0 ) throw std::runtime_error( "iproute2 failed at: " + arguments );
      return boost::json::parse( text ).as_array();
   }

 private:
   static void carryOut( std::string const & program, std::string const & lines ) {
      FILE * const batch = popen( ( program + " -batch -" ).c_str(), "w" );
      std::fputs( ( lines + "\n" ).c_str(), batch );
      if( pclose( batch ) != 0 ) throw std::runtime_error( "iproute2 failed at: " + lines );
   }

   // Root has the right to a network namespace; anyone else needs a user namespace around it, in which to be root.
   static bool entered() {
      if( unshare( CLONE_NEWNET ) == 0 ) return true;
      auto const user = std::to_string( geteuid() );
      auto const group = std::to_string( getegid() );
      if( unshare( CLONE_NEWUSER | CLONE_NEWNET ) != 0 ) return false;
      std::ofstream( "/proc/self/setgroups" ) << "deny";
      std::ofstream( "/proc/self/uid_map" ) << "0 " + user + " 1";
      std::ofstream( "/proc/self/gid_map" ) << "0 " + group + " 1";
      return geteuid() == 0;
   }
};
