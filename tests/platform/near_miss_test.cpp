// What somebody who mistyped a name is asked.
#include "kel/NearMiss.h"

#include <gtest/gtest.h>

namespace Kel {
namespace {

TEST( NearMiss, isTheNearestNameOrTheOneThatBeginsSo ) {
   std::vector<std::string> const names{ "status", "units", "enter", "exit", "check-config", "trace" };
   struct {
      std::string given;
      char const * meant;
   } const cases[] = {
      { "statsu", "status" },
      { "Status", "status" },
      { "entre", "enter" },
      { "exi", "exit" },
      { "unit", "units" },
      { "check", "check-config" },
      { "x", "" },
      { "", "" },
      { "maintenance", "" },
      { std::string( 1000000, 's' ), "" },
   };
   for( auto const & [given, meant] : cases ) EXPECT_EQ( nearMiss( given, names ), meant ) << given.substr( 0, 20 );
   EXPECT_EQ( didYouMean( "ext", names ), "; did you mean \"exit\"?" );
   EXPECT_EQ( didYouMean( "nothing like it", names ), "" );
}

TEST( NearMiss, listsStayReadable ) {
   EXPECT_EQ( listed( {}, 2 ), "" );
   EXPECT_EQ( listed( { "a", "b", "c" }, 2 ), "a, b, c" );
   EXPECT_EQ( listed( { "a", "b", "c", "d" }, 2 ), "a, b and 2 more" );
}

}  // namespace
}  // namespace Kel
