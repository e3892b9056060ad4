// One agent for the links of a network namespace, whoever starts the second one and however the first one ends.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "claims/Boot.h"
#include "claims/NamespaceLock.h"
#include "net/PrivateNetwork.h"

namespace Host {
namespace {

using ::testing::HasSubstr;

// A process that does something and then stays until it is killed.
class Other {
 public:
   explicit Other( std::function<void()> const & first ) {
      int ready[2];
      EXPECT_EQ( pipe( ready ), 0 );
      pid_ = fork();
      if( pid_ == 0 ) {
         prctl( PR_SET_PDEATHSIG, SIGKILL );
         first();
         if( ::testing::Test::HasFailure() || write( ready[1], "x", 1 ) != 1 ) _exit( 1 );
         for( ;; ) pause();
      }
      close( ready[1] );
      char told = 0;
      EXPECT_EQ( read( ready[0], &told, 1 ), 1 );  // 0 when something in there failed
      close( ready[0] );
   }
   ~Other() {
      kill( pid_, SIGKILL );
      waitpid( pid_, nullptr, 0 );
   }
   [[nodiscard]] std::string pid() const { return std::to_string( pid_ ); }

 private:
   pid_t pid_;
};

std::string refusal() {
   try {
      NamespaceLock const lock;
      return "";
   } catch( NamespaceTaken const & taken ) {
      return taken.what();
   }
}

// Takes the name as any user can, and answers nobody.
void squat() {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::string const name = "ratemon/maintd";
   name.copy( address.sun_path + 1, name.size() );
   int const fd = socket( AF_UNIX, SOCK_STREAM, 0 );
   EXPECT_EQ( bind( fd, reinterpret_cast<sockaddr *>( &address ), static_cast<socklen_t>( 3 + name.size() ) ), 0 );
}

}  // namespace

class Claims : public PrivateNetwork {};

TEST_F( Claims, oneProcessOfTheNamespaceHasItsLinksUntilItDies ) {
   {
      Other const agent( [] { new NamespaceLock; } );
      for( int attempt = 0; attempt < 300; ++attempt ) {
         ASSERT_THAT( refusal(), HasSubstr( "process " + agent.pid() + " of user " + std::to_string( geteuid() ) ) );
      }
      EXPECT_THAT( refusal(), HasSubstr( "most likely a maintd" ) );
      Other const elsewhere( [] {
         EXPECT_EQ( unshare( CLONE_NEWNET ), 0 );
         EXPECT_EQ( refusal(), "" );
      } );
   }
   EXPECT_EQ( refusal(), "" );
   // What an agent starts, a hook for example, does not go on having them.
   pid_t child = 0;
   {
      NamespaceLock const lock;
      child = vfork();
      if( child == 0 ) execl( "/bin/sleep", "sleep", "60", nullptr );
   }
   EXPECT_EQ( refusal(), "" );
   kill( child, SIGKILL );
   waitpid( child, nullptr, 0 );
}

// Nothing can be done about it here but to say who it is.
TEST_F( Claims, anotherUserWhoHasTheNameIsTold ) {
   {
      Other const other( [] {
         if( setuid( 65534 ) != 0 ) return;  // only root of the machine can become another
         new NamespaceLock;
      } );
      if( std::string const told = refusal(); !told.empty() ) {
         EXPECT_THAT( told, HasSubstr( "process " + other.pid() + " of user 65534 " ) );
         EXPECT_THAT( told, HasSubstr( "if that is no maintd" ) );
      }
   }
   Other const silent( squat );
   EXPECT_THAT( refusal(), HasSubstr( "it does not answer" ) );
}

TEST( Boot, hasANameThatStays ) {
   EXPECT_THAT( bootId(), ::testing::MatchesRegex( "[0-9a-f-]{36}" ) );
   EXPECT_EQ( bootId(), bootId() );
}

}  // namespace Host
