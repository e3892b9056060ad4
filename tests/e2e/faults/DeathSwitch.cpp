// maintd that kills itself around a commit of its store: RATEMON_DEATH says at which, as "before 3" or "after 3",
// counted from its start. What was before it is on disk, or done to a link; what comes after it is not.
#include <dlfcn.h>
#include <sqlite3.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// The moment that is passed now. A process ends at once, as one that was killed from outside.
void pass( std::string const & moment ) {
   char const * const death = std::getenv( "RATEMON_DEATH" );
   if( !death || moment != death ) return;
   ::kill( ::getpid(), SIGKILL );
   for( ;; ) ::pause();
}

int commits = 0;

}  // namespace

// Called in place of the library's, which comes next in the order in which the program's symbols are looked up.
extern "C" int sqlite3_step( sqlite3_stmt * statement ) {
   static auto const real = reinterpret_cast<decltype( &sqlite3_step )>( dlsym( RTLD_NEXT, "sqlite3_step" ) );
   char const * const sql = sqlite3_sql( statement );
   bool const commit = sql && std::strcmp( sql, "COMMIT" ) == 0;
   if( !commit ) return real( statement );
   std::string const number = std::to_string( ++commits );
   pass( "before " + number );
   int const code = real( statement );
   pass( "after " + number );
   return code;
}
