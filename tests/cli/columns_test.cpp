// The columns of maintctl's tables against the declarations of the answers that they show.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Answers.h"
#include "tables/Report.h"
#include "tables/Units.h"

namespace Cli {
namespace {

struct Shown {
   char const * table;
   Columns columns;
   Object declared;
};

TEST( Columns, showMembersThatTheAnswersDeclare ) {
   Shown const tables[] = {
      { "units", unitColumns, received( Service::UnitAnswer() ) },
      { "accounts", accountColumns, received( Service::AccountAnswer() ) },
      { "explained", explainedColumns, received( Service::AccountAnswer() ) },
      { "interfaces", interfaceColumns, received( Service::InterfaceAnswer() ) },
      { "stages", stageColumns, received( Service::WindowStageAnswer() ) },
      { "interfaces of a window", windowInterfaceColumns, received( Service::WindowInterfaceAnswer() ) },
      { "events of a window", windowEventColumns, received( Evidence::IntfEvent() ) },
   };
   for( auto const & [table, columns, declared] : tables ) {
      EXPECT_GE( columns.size(), 3u ) << table;
      for( Column const & column : columns )
         EXPECT_TRUE( declared.contains( column.member ) ) << table << column.member;
   }
}

// Of an account that is not on its way every member but the name is null, and so is much of an interface that nobody
// samples.
TEST( Columns, neverShowANumberForWhatIsNotKnown ) {
   auto const cells = []( Columns columns, Object const & row ) {
      std::vector<std::string> texts;
      for( Column const & column : columns ) texts.push_back( column.shown( row, column.member, { 1000, {} } ) );
      return texts;
   };
   Service::AccountAnswer account;
   account.interface = "up1";
   std::vector<std::string> expected( accountColumns.size(), "-" );
   expected.front() = "up1";
   EXPECT_EQ( cells( accountColumns, received( account ) ), expected );
   EXPECT_EQ( cells( explainedColumns, received( account ) ),
              std::vector<std::string>( explainedColumns.size(), "-" ) );

   Service::InterfaceAnswer intf;
   intf.interface = "up1";
   intf.operStatus = "missing";
   std::vector<std::string> bare( interfaceColumns.size(), "-" );
   bare[0] = "up1";
   bare[1] = "missing";
   EXPECT_EQ( cells( interfaceColumns, received( intf ) ), bare );
}

// What was measured as 0 is not the same as what was not measured.
TEST( Columns, showAZeroThatWasMeasured ) {
   Service::AccountAnswer account;
   account.inBitsRate = 0;
   EXPECT_EQ( rateCell( received( account ), "inBitsRate", {} ), "0 bps" );
   EXPECT_EQ( rateCell( received( account ), "outBitsRate", {} ), "-" );
}

TEST( Spans, neverEndBeforeTheyDo ) {
   EXPECT_EQ( neededText( 0.2 ), "1 s" );
   EXPECT_EQ( neededText( 12 ), "12 s" );
   EXPECT_EQ( spanText( 0.4 ), "0 s" );
   EXPECT_EQ( spanText( 11.6 ), "12 s" );
   // A clock that is asked twice in one turn may not differ at all, and must not go backwards in print.
   EXPECT_EQ( spanText( -0.7 ), "0 s" );
}

}  // namespace
}  // namespace Cli
