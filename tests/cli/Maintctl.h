// maintctl as a process, in a directory of its own with the socket of a daemon that the test makes up.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "Answers.h"
#include "FakeDaemon.h"

namespace Cli {

struct Result {
   int status = -1;  // -1: ended by a signal
   std::string out;
   std::string err;
   double seconds = 0;
   long memoryKilobytes = 0;  // at most in use
};

template<class Answer>
Reply ok( Answer const & answer ) {
   return { 200, Kel::toJson( Kel::value( answer ) ) };
}

struct Surroundings {
   std::vector<std::string> environment = {};  // "NAME=value"
   uid_t user = 0;                             // 0: that of the test
   std::function<void()> beforeExec = {};      // in the child, after all else
   std::string program = RATEMON_MAINTCTL_PATH;
};

// One that runs.
struct Running {
   pid_t process;
   std::string name;
   double begun;
};

class Maintctl : public ::testing::Test {
 protected:
   using Words = std::vector<std::string>;

   Maintctl();
   ~Maintctl() override;

   void daemonAnswers( Script script );
   void daemonDoes( FakeDaemon::Behave const & behave, FakeDaemon::Manner manner = { 16, true } );
   [[nodiscard]] FakeDaemon const & daemon() const { return *daemon_; }
   void daemonGone() { daemon_.reset(); }

   // With the socket of the test, unless it says "--socket" first.
   [[nodiscard]] Running begun( Words arguments, Surroundings const & in );
   [[nodiscard]] Result ended( Running const & running ) const;
   [[nodiscard]] Result maintctl( Words const & arguments, Surroundings const & in = {} ) {
      return ended( begun( arguments, in ) );
   }

   [[nodiscard]] std::string path( std::string const & name ) const { return directory_ + "/" + name; }
   [[nodiscard]] std::string contents( std::string const & name ) const;
   // What the daemon of a script was asked for, a line each.
   [[nodiscard]] std::string requests() const { return contents( "requests" ); }

 private:
   std::string directory_;
   int count_ = 0;
   std::unique_ptr<FakeDaemon> daemon_;
};

}  // namespace Cli
