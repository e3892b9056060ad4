// What an operator is told: which event each thing that happens makes, and what is kept of them.
#include <utility>

#include "Box.h"

namespace Service {

using ::testing::ElementsAreArray;

namespace {

// "warning spike fabric#1 up2: out 4 Mbps"
std::string lineOf( Event const & event ) {
   std::string line = event.severity.str() + " " + event.kind.str();
   if( event.unit ) line += " " + event.unit->str();
   if( event.generation ) line += "#" + std::to_string( *event.generation );
   if( event.interface ) line += " " + event.interface->str();
   return line + ": " + event.text.str();
}

}  // namespace

class Events : public Box {
 protected:
   // What happens, and what an operator hears of it.
   struct Step {
      std::function<void()> happens;
      std::vector<std::string> heard;
   };
   void expectHeard( std::vector<Step> const & story ) {
      for( std::size_t i = 0; i < story.size(); ++i ) {
         events_.clear();
         story[i].happens();
         std::vector<std::string> heard;
         for( Event const & event : events_ ) heard.push_back( lineOf( event ) );
         EXPECT_THAT( heard, ElementsAreArray( story[i].heard ) ) << "step " << i;
      }
   }
};

TEST_F( Events, tellOfAUnitAndItsInterfacesFromTheFirstRequestToTheEnd ) {
   begin( fileWith( "" ) );
   expectHeard( {
      { [&] { enter( "fabric", { "eth9" } ); },
        { "warning request fabric: enter, asked for by ann, is refused: eth9: not an interface of unit fabric, so it "
          "cannot be left out; its interfaces are: up1, up2" } },
      { [&] {
          traffic( "up2", 0, 4 * Mbps );
          enter( "fabric" );
       },
        { "notice request fabric#1: enter, asked for by ann: generation 1", "notice state fabric#1: entering",
          "notice stage fabric#1: ratemon: begins",
          "info verdict fabric#1 up1: waiting: no reading yet: its monitoring has just begun",
          "info verdict fabric#1 up2: waiting: no reading yet: its monitoring has just begun" } },
      { [&] { advance( 50 ); },
        { "info verdict fabric#1 up1: quiet: below 100 kbps for 10 s, 20 s still needed",
          "info verdict fabric#1 up2: loud: out 4 Mbps, has to fall below 100 kbps" } },
      { [&] {
          traffic( "up2", 0 );
          advance( 60 );
       },
        { "info verdict fabric#1 up2: quiet: below 100 kbps for 10 s, 20 s still needed",
          "notice ready fabric#1: every interface is proven quiet", "notice stage fabric#1: ratemon: done after 80 s",
          "notice stage fabric#1: verify: begins", "notice stage fabric#1: verify: done after 0 s",
          "notice state fabric#1: inMaintenance" } },
      { [&] {
          traffic( "up2", 4 * Mbps );
          advance( 30 );
       },
        { "warning spike fabric#1 up2: in 2 Mbps",
          "info verdict fabric#1 up2: loud: in 2 Mbps, has to fall below 100 kbps",
          "warning not ready fabric#1: up2: in 2 Mbps, has to fall below 100 kbps",
          "warning disturbed fabric#1: traffic is back: up2" } },
      { [&] {
          traffic( "up2", 0 );
          advance( 60 );
       },
        { "info verdict fabric#1 up2: quiet: below 100 kbps for 20 s, 10 s still needed",
          "notice quiet again fabric#1: no traffic is left",
          "notice ready fabric#1: every interface is proven quiet" } },
      { [&] {
          crash();
          begin( fileWith( "" ) );
       },
        { "notice agent: took over 1 unit under way: fabric (inMaintenance)" } },
      // On its way out nobody asks for verdicts.
      { [&] {
          exit( "fabric" );
          advance( 30 );
       },
        { "notice request fabric#2: exit, asked for by bob: generation 2", "notice state fabric#2: leaving",
          "notice stage fabric#2: ratemon: begins", "notice stage fabric#2: ratemon: done after 0 s",
          "notice state fabric#2: active" } },
   } );
}

TEST_F( Events, tellOfLinksOfTheConfigurationHoldsAndReloads ) {
   begin( fileWith( "" ) );
   std::string other = fileWith( "" );
   other.erase( other.find( "  fabric:" ), std::string( "  fabric: { groups: [ups] }\n" ).size() );
   expectHeard( {
      { [&] {
          link( "up1", false );
          link( "other", false );  // of no unit
          link( "other", true );
          link( "up1", true );
          linkGone( "up2" );  // of two units
          link( "up2", true );
       },
        { "notice link fabric up1: went down", "notice link fabric up1: came up", "notice link up2: vanished",
          "notice link up2: came back, up" } },
      { [&] {
          enter( "fabric" );
          events_.clear();
          inTurn( [&] { service_->tellHold( Lumo::IntfId( "up1" ), Severity::notice, "taken down" ); } );
          inTurn( [&] { service_->tellHold( Lumo::IntfId( "up2" ), Severity::warning, "no" ); } );
       },
        { "notice hold fabric#1 up1: taken down", "warning hold up2: no" } },
      { [&] {
          reload( other );
          inTurn( [&] { service_->reload( configOf( fileWith( "" ) ), "ann" ); } );
       },
        { "warning reload: refused: unit fabric cannot be taken away: it is entering, not active",
          "notice reload: done, asked for by ann" } },
   } );
}

TEST_F( Events, tellOfProgramsAndDeadlinesThatGoWrong ) {
   begin(
      fileWith( "  maintEnter: [ { name: bgp, run: [/bgp] }, { name: ratemon }, { name: verify } ]\n"
                "  maintExit: [ { name: ratemon }, { name: bgp, run: [/bgp], timeout: 20s } ]\n" ) );
   expectHeard( {
      { [&] {
          enter( "fabric" );
          programEnds( "fabric", "exit status 1" );
       },
        { "notice request fabric#1: enter, asked for by ann: generation 1", "notice state fabric#1: entering",
          "notice stage fabric#1: bgp: begins", "warning stage fabric#1: bgp: failed after 0 s: exit status 1",
          "notice request fabric#2: exit, asked for by maintd: generation 2", "notice state fabric#2: leaving",
          "notice stage fabric#2: ratemon: begins", "notice stage fabric#2: ratemon: done after 0 s",
          "notice stage fabric#2: bgp: begins" } },
      { [&] { advance( 20 ); },
        { "warning deadline fabric#2: bgp is not over after 20 s: the unit fails",
          "warning stage fabric#2: bgp: timed out after 20 s", "error state fabric#2: failed" } },
   } );
}

}  // namespace Service
