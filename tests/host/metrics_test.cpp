// GET /metrics: what is told, when a series ends, and that those who scrape can read it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cstdlib>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "ApiBox.h"
#include "TempDir.h"
#include "kel/Assert.h"
#include "metrics/Families.h"
#include "metrics/Metrics.h"
#include "metrics/ProcessUsage.h"

namespace Host {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Key;
using ::testing::Not;
using ::testing::Pair;
using ::testing::StartsWith;

bool hasPromtool() { return std::system( "command -v promtool >/dev/null" ) == 0; }

class MetricsTest : public ::testing::Test, protected ApiBox {
 protected:
   MetricsTest() {
      api_.metricsIs( [this] { return metrics_.answer(); } );
   }

   // As a client gets it, in pieces of about so many bytes.
   std::string scraped( std::size_t bytes = 1 ) {
      auto const answer = ask( "GET", "/metrics" );
      KEL_ASSERT( answer.status == 200 && answer.stream );
      std::string text = answer.body;
      while( !answer.stream->ended() ) text += answer.stream->next( bytes );
      return text;
   }
   // By "name{label="value"}".
   std::map<std::string, std::string> series() {
      std::map<std::string, std::string> found;
      std::istringstream lines( scraped() );
      for( std::string line; std::getline( lines, line ); ) {
         if( line.starts_with( '#' ) ) continue;
         auto const space = line.rfind( ' ' );
         EXPECT_TRUE( found.emplace( line.substr( 0, space ), line.substr( space + 1 ) ).second ) << "twice: " << line;
      }
      return found;
   }
   void configIs( std::string const & groups ) {
      std::string const config = "profiles: { quick: { threshold: 100kbps } }\ndefault-profile: quick\n" + groups;
      loop_.turn(
         [&] { EXPECT_THAT( service_.reload( Service::Config::parse( config, "c" ) ), ::testing::IsEmpty() ); } );
   }
   void linkIs( char const * name, bool up ) {
      loop_.turn( [&] {
         Service::LinkReport report;
         report.up = up;
         links_.linkIs( Lumo::IntfId::declare( name, Lumo::IntfKind::ethernet ), report );
      } );
   }

   LiveCounters counted_;
   bool noRoom_ = false;
   Metrics metrics_{ { service_, state_, Service::heldLinkDir( *database_ ), counted_, [this] { return noRoom_; } } };
};

TEST_F( MetricsTest, aUnitOnItsWayIsToldAndWhatIsNotKnownHasNoSeries ) {
   makeUnit();
   counted_.eventInc( "spike" );
   counted_.reloadInc( false );
   noRoom_ = true;
   auto const before = series();
   EXPECT_THAT( before, AllOf( Contains( Pair( "ratemon_unit_state{unit=\"fabric\",state=\"active\"}", "1" ) ),
                               Contains( Pair( "ratemon_unit_state{unit=\"fabric\",state=\"entering\"}", "0" ) ),
                               Contains( Pair( "ratemon_unit_interfaces{unit=\"fabric\"}", "2" ) ),
                               Contains( Pair( "ratemon_interface_present{interface=\"up2\"}", "0" ) ),
                               Contains( Pair( "ratemon_interface_up{interface=\"up1\"}", "1" ) ) ) );
   EXPECT_THAT( before,
                AllOf( Contains( Pair( "ratemon_interface_threshold_bytes_per_second{interface=\"up1\"}", "12500" ) ),
                       Contains( Pair( "ratemon_events_total{kind=\"spike\"}", "1" ) ),
                       Contains( Pair( "ratemon_events_total{kind=\"verdict\"}", "0" ) ),
                       Contains( Pair( "ratemon_config_reloads_total{result=\"refused\"}", "1" ) ),
                       Contains( Pair( "ratemon_config_last_reload_successful", "0" ) ),
                       Contains( Pair( "ratemon_store_trouble", "1" ) ) ) );
   for( char const * const unknown :
        { "ratemon_interface_receive_bytes_per_second{interface=\"up1\"}", "ratemon_interface_up{interface=\"up2\"}",
          "ratemon_unit_state_age_seconds{unit=\"fabric\"}",
          "ratemon_account_settled{unit=\"fabric\",interface=\"up1\"}",
          "ratemon_unit_accounts{unit=\"fabric\",verdict=\"loud\"}" } )
      EXPECT_THAT( before, Not( Contains( Key( unknown ) ) ) );

   EXPECT_EQ( ask( "POST", "/v1/units/fabric/enter?without=up2" ).status, 200u );
   clock_->nowIs( 1007 );
   auto const entering = series();
   EXPECT_THAT( entering, AllOf( Contains( Pair( "ratemon_unit_state_age_seconds{unit=\"fabric\"}", "7" ) ),
                                 Contains( Pair( "ratemon_unit_accounts{unit=\"fabric\",verdict=\"left out\"}", "1" ) ),
                                 Contains( Pair( "ratemon_unit_accounts{unit=\"fabric\",verdict=\"loud\"}", "0" ) ),
                                 Contains( Pair( "ratemon_unit_unsettled_accounts{unit=\"fabric\"}", "1" ) ),
                                 Contains( Pair( "ratemon_account_settled{unit=\"fabric\",interface=\"up2\"}", "1" ) ),
                                 Not( Contains( Key( "ratemon_unit_still_needed_seconds{unit=\"fabric\"}" ) ) ) ) );
   EXPECT_THAT( entering, Contains( Key( AllOf( StartsWith( "ratemon_account_verdict_info{" ),
                                                HasSubstr( "interface=\"up2\",verdict=\"left out\"" ) ) ) ) );
}

// Also names that have to be escaped.
TEST_F( MetricsTest, anInterfaceThatLeavesTheConfigurationHasNoSeriesLeft ) {
   configIs( "groups: { g: { interfaces: [a, b\"b\\b] } }\nunits: { \"north \\\"1\\\"\": { groups: [g] } }\n" );
   linkIs( "a", true );
   EXPECT_THAT( series(), AllOf( Contains( Key( HasSubstr( "{interface=\"a\"" ) ) ),
                                 Contains( Key( "ratemon_interface_present{interface=\"b\\\"b\\\\b\"}" ) ),
                                 Contains( Key( "ratemon_unit_ready{unit=\"north \\\"1\\\"\"}" ) ) ) );
   configIs( "groups: { g: { interfaces: [b] } }\nunits: { south: { groups: [g] } }\n" );
   EXPECT_THAT( series(), Not( Contains( Key( AnyOf( HasSubstr( "interface=\"a\"" ), HasSubstr( "north" ) ) ) ) ) );
}

// The rules of those who scrape, so far as no promtool is needed to see them broken.
TEST_F( MetricsTest, everyNameHoldsByTheRulesAndOnePieceIsAsGoodAsMany ) {
   makeUnit();
   EXPECT_EQ( ask( "POST", "/v1/units/fabric/enter?without=up2" ).status, 200u );
   std::string const text = scraped( 1'000'000 );
   static std::regex const line(
      "# HELP [a-z_]+ [A-Z].*\\.|# TYPE ((ratemon|process)_[a-z_]+) (counter|gauge|histogram)"
      "|([a-z_]+)(\\{([a-z]+=\"([^\"\\\\]|\\\\[\\\\n\"])*\",?)+\\})? [-+0-9.eInf]+" );
   std::set<std::string> names;
   std::smatch match;
   std::istringstream lines( text );
   for( std::string told; std::getline( lines, told ); ) {
      ASSERT_TRUE( std::regex_match( told, match, line ) ) << told;
      std::string const name = match[1];
      if( name.empty() ) continue;
      EXPECT_TRUE( names.insert( name ).second ) << "twice: " << name;
      EXPECT_EQ( name.ends_with( "_total" ), match[3] == "counter" ) << name;
      EXPECT_THAT( name, Not( ::testing::ContainsRegex( "bits|millis|minutes|gauge|counter" ) ) );
   }
   EXPECT_GT( names.size(), 25u );
   EXPECT_EQ( ask( "GET", "/metrics" ).contentType, std::string( "text/plain; version=0.0.4; charset=utf-8" ) );

   if( !hasPromtool() ) return;
   TempDir const directory;
   contentIs( directory / "metrics", text );
   EXPECT_EQ( std::system( ( "promtool check metrics <" + ( directory / "metrics" ) ).c_str() ), 0 );
}

// Each holds what the whole box was like, and everyone may ask.
TEST_F( MetricsTest, ofManyWhoDoNotReadTheOldestIsCutOff ) {
   makeUnit();
   std::vector<HttpAnswer> crowd( Metrics::scrapesMax );
   for( auto & slow : crowd ) slow = ask( "GET", "/metrics" );
   EXPECT_NE( crowd[0].stream->next( 1 ), "" );
   EXPECT_THAT( scraped(), HasSubstr( "fabric" ) );
   EXPECT_THROW( static_cast<void>( crowd[0].stream->next( 1 ) ), std::runtime_error );
   EXPECT_NE( crowd[1].stream->next( 1 ), "" );
}

// Dashboard and alerts of examples/: a name that nobody tells would stay silent for ever.
TEST_F( MetricsTest, whatTheExamplesAskForIsTold ) {
   auto collected = counted_.collected();
   std::ranges::move( processUsage(), std::back_inserter( collected ) );
   std::set<std::string> told;
   for( auto const & family : collected ) told.insert( family.name );
   for( auto const & family : families() ) told.insert( family.name );
   std::string const examples = RATEMON_SOURCE_DIR "/examples/";
   std::string const dashboard = contentOf( examples + "grafana/ratemon-dashboard.json" );
   EXPECT_GT( boost::json::parse( dashboard ).at( "panels" ).as_array().size(), 10u );
   std::string const alerts = contentOf( examples + "prometheus/ratemon-alerts.yaml" );
   for( std::string const & text : { dashboard, alerts } ) {
      static std::regex const name( "\\b(ratemon|process)_[a-z_]+" );
      std::size_t asked = 0;
      for( std::sregex_iterator found( text.begin(), text.end(), name ); found != std::sregex_iterator(); ++found ) {
         EXPECT_TRUE( told.contains( std::regex_replace( found->str(), std::regex( "_bucket$" ), "" ) ) )
            << found->str();
         ++asked;
      }
      EXPECT_GT( asked, 10u );
   }
   if( !hasPromtool() ) return;
   EXPECT_EQ(
      std::system(
         ( "cd " + examples +
           "prometheus && promtool check rules ratemon-alerts.yaml && promtool test rules ratemon-alerts-test.yaml" )
            .c_str() ),
      0 );
}

TEST_F( MetricsTest, namesThatAreNoTextStayTwo ) {
   EXPECT_EQ( labelText( "pl\xc3\xa4ne" ), "pl\xc3\xa4ne" );
   EXPECT_EQ( labelText( "l\xff" ), "l\\xff" );
   EXPECT_EQ( labelText( "l\xe2\x82 " ), "l\\xe2\\x82 " );
}

}  // namespace
}  // namespace Host
