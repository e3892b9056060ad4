// A small box of its own for end-to-end tests: private network namespace, veth links, the real maintd, maintctl and
// packets.
//
// Every child runs in the test's namespace and dies with the test. What maintd wrote is shown when a test fails.
#pragma once

#include <sys/types.h>

#include <boost/json.hpp>
#include <functional>
#include <string>
#include <vector>

#include "net/PrivateNetwork.h"

namespace Test {

struct Result {
   int status = -1;  // exit status; -1 for a child that did not exit by itself
   std::string out;  // standard output
   std::string err;  // standard error
};

// What is wrong with a maintd, or with the box that it finds.
struct Faults {
   std::string unread = {};  // while this file exists, reads of the counters fail
   std::string death = {};   // it kills itself at this moment: "before 3", "after 3", of the commits of its store
   std::string inside = {};  // carried out by a shell before it starts, in a mount namespace of its own

   [[nodiscard]] bool inMaintd() const { return !unread.empty() || !death.empty(); }
};

class Box : public PrivateNetwork {
 protected:
   Box();
   ~Box() override;

   // A veth pair: `name`, and its other end, called the same with "far" before it. Packets sent to 10.9.<number>.2
   // leave by it.
   static void link( std::string const & name, int number );

   // Starts maintd over this test's own store, and waits until it answers.
   void startMaintd( std::string const & config, std::vector<std::string> const & more = {},
                     Faults const & faults = {} );
   // Starts it and returns its exit status, for one that cannot start.
   [[nodiscard]] int refusesToStart( std::string const & config, std::vector<std::string> const & more = {},
                                     Faults const & faults = {} );
   // The file system as maintd sees it.
   [[nodiscard]] std::string maintdsRoot() const { return "/proc/" + std::to_string( maintd_ ) + "/root"; }
   // Whether it has ended by itself since it was started.
   [[nodiscard]] bool maintdDied();
   // Sends it a signal and returns its exit status.
   int stopMaintd( int signal );
   // Gives it another configuration and has it read that.
   void changeConfig( std::string const & config );
   // Traffic on a link until it is stopped, in bits of whole frames a second; as long as the test lives.
   [[nodiscard]] pid_t send( std::string const & link, int number, double bitsPerSecond );
   static void stop( pid_t child );

   [[nodiscard]] Result run( std::vector<std::string> const & command ) const;
   [[nodiscard]] Result maintctl( std::vector<std::string> const & arguments ) const;
   // The same beside what else the test does; one at a time.
   void beginMaintctl( std::vector<std::string> const & arguments );
   [[nodiscard]] Result maintctlEnds();
   // One interface as `maintctl interfaces --json` shows it.
   [[nodiscard]] boost::json::object shown( std::string const & interface ) const;
   // One unit as `maintctl status UNIT --json` shows it, and the account of one of its interfaces in there.
   [[nodiscard]] boost::json::object shownUnit( std::string const & unit ) const;
   [[nodiscard]] boost::json::object account( std::string const & unit, std::string const & interface ) const;
   [[nodiscard]] std::string state( std::string const & unit ) const;
   // Empty for null.
   [[nodiscard]] static std::string text( boost::json::object const & object, char const * member );

   [[nodiscard]] std::string path( std::string const & name ) const { return directory_ + "/" + name; }
   std::string file( std::string const & name, std::string const & content ) const;  // its path
   [[nodiscard]] static std::string contents( std::string const & path );

   // Waits until it holds; false when it does not in time.
   [[nodiscard]] static bool eventually( std::function<bool()> const & holds, double seconds = 40 );
   // What the kernel has counted as sent on a link.
   [[nodiscard]] static double sentBytes( std::string const & link );
   [[nodiscard]] static bool adminUp( std::string const & link );
   // Its addresses for everyone, "10.9.1.1/24".
   [[nodiscard]] static std::vector<std::string> addresses( std::string const & link );
   [[nodiscard]] static boost::json::object linkOf( std::string const & link );

 private:
   [[nodiscard]] std::vector<std::string> maintctlCommand( std::vector<std::string> const & arguments ) const;
   void spawnMaintd( std::string const & config, std::vector<std::string> const & more, Faults const & faults );
   [[nodiscard]] pid_t spawn( std::vector<std::string> const & command, std::string const & out,
                              std::string const & err ) const;

   std::string directory_;
   pid_t maintd_ = 0;
   pid_t maintctl_ = 0;  // the one that was begun
   std::vector<pid_t> senders_;
};

}  // namespace Test
