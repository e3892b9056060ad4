// The promises of the fleet, held against random plans on a fleet in which everything goes wrong that can.
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/json/parse.hpp>
#include <cstdlib>
#include <iostream>

#include "VirtualFleet.h"

namespace FleetTest {

namespace {

constexpr char const * fabric = R"(
boxes:
  s1a: { labels: { pair: s1, plane: a, site: fra }, units: [ fabric ] }
  s1b: { labels: { pair: s1, plane: b, site: fra }, units: [ fabric ] }
  s2a: { labels: { pair: s2, plane: a, site: fra }, units: [ fabric, edge ] }
  s2b: { labels: { pair: s2, plane: b, site: fra }, units: [ fabric, edge ] }
  s3a: { labels: { pair: s3, plane: a, site: ams }, units: [ fabric ] }
  s3b: { labels: { pair: s3, plane: b, site: ams }, units: [ fabric ] }
  s4a: { labels: { pair: s4, plane: a, site: ams }, units: [ fabric ] }
  s4b: { labels: { pair: s4, plane: b, site: ams }, units: [ fabric ] }
budgets:
  pair:  { out: 1 }
  plane: { out: 50% }
  site:  { in-service: 50% }
heartbeat: 15s
)";

PlanRequest randomRequest( std::mt19937 & random ) {
   auto const pick = [&]( auto const & of ) {
      return of[std::uniform_int_distribution<std::size_t>( 0, of.size() - 1 )( random )];
   };
   PlanRequest request{ .by = "test" };
   request.select.labels = pick( std::vector<Labels>{
      {}, { { "plane", "a" } }, { { "site", "ams" } }, { { "pair", "s2" } }, { { "pair", "s1" } } } );
   request.select.unit = pick( std::vector<std::string>{ "", "fabric" } );
   request.waves = waveSizes( pick( std::vector<std::string>{ "1", "2", "1, 50%", "100%" } ) );
   request.soakSeconds = pick( std::vector<double>{ 0, 10 } );
   request.deadlineSeconds = pick( std::vector<double>{ 40, 120 } );
   request.atDeadline = pick( std::vector<AtDeadline>{ AtDeadline::hold, AtDeadline::giveBack } );
   request.staySeconds = pick( std::vector<double>{ 0, 30 } );
   return request;
}

Trouble randomTrouble( std::mt19937 & random ) {
   auto const either = [&]( double much ) { return std::bernoulli_distribution( 0.5 )( random ) ? much : 0.0; };
   return { .lost = either( 0.2 ),
            .repeated = either( 0.3 ),
            .mostDelay = 0.2 + either( 20 ),
            .death = either( 0.05 ),
            .brokerGone = either( 0.004 ),
            .boxOff = either( 0.001 ),
            .noAnswer = either( 0.2 ),
            .refusal = either( 0.05 ),
            .rollback = either( 0.01 ),
            .byHand = either( 0.001 ),
            .neverQuiet = either( 0.2 ),
            .skew = either( 60 ) };
}

// Under a brake a plan stands still, says which brake, and is not to be resumed.
void expectHeld( VirtualFleet & fleet, Plan const & plan ) {
   EXPECT_EQ( plan.state, PlanState::paused ) << plan.id;
   auto const says = fleet.owner()->waitsFor( plan, fleet.now() );
   EXPECT_TRUE( std::ranges::any_of( says,
                                     []( std::string const & text ) {
                                        return text.starts_with( "the brake of " ) &&
                                               text.ends_with( " is on, by bob" );
                                     } ) )
      << plan.id << ": " << testing::PrintToString( says );
   EXPECT_THROW( fleet.ask( [&]( Dispatcher & owner ) { owner.planResumed( plan.id, {}, "ada", fleet.now() ); } ),
                 Refused )
      << plan.id;
}

// What an operator does with plans that have stopped: sees to traffic and to what was taken out by hand, and goes on.
void resumeAll( VirtualFleet & fleet ) {
   if( !fleet.owner() ) return;
   for( Box const & box : fleet.owner()->inventory().boxes() ) fleet.tidied( box.name );
   auto const plans = fleet.owner()->books().plans();
   for( auto const & [id, plan] : plans ) {
      if( !plan.over() && fleet.owner() && fleet.isBraked( plan ) ) {
         expectHeld( fleet, plan );
         continue;
      }
      if( plan.state != PlanState::paused || !fleet.owner() ) continue;
      EXPECT_NE( plan.why, "" ) << id;
      fleet.ask( [&, &id = id]( Dispatcher & owner ) { owner.planResumed( id, {}, "ada", fleet.now() ); } );
   }
}

void brakeOrRelease( VirtualFleet & fleet, std::mt19937 & random ) {
   char const * const sites[] = { "", "fra", "ams" };
   char const * const site = sites[std::uniform_int_distribution<std::size_t>( 0, 2 )( random )];
   fleet.brakeIs( site, std::bernoulli_distribution( 0.4 )( random ) );
}

// Every order is on record once, with budgets that were kept, and each unit that went out is on record as back.
void expectOnRecord( VirtualFleet & fleet ) {
   std::map<int64_t, int> orders;
   std::set<std::string> out;
   for( Record const & record : fleet.ownersMemory().records ) {
      boost::json::object const text = boost::json::parse( record.text ).as_object();
      boost::json::string const & what = text.at( "what" ).as_string();
      if( what == "ordered out" || what == "ordered back" ) {
         ++orders[text.at( "order" ).as_int64()];
         out.insert( record.box + "/" + record.unit );
      }
      if( what == "in service" ) {
         EXPECT_EQ( out.erase( record.box + "/" + record.unit ), 1u ) << record.text;
      }
      if( !text.contains( "budgets" ) ) continue;
      for( auto const & group : text.at( "budgets" ).as_array() )
         EXPECT_LE( group.at( "out" ).as_int64(), group.at( "mayBeOut" ).as_int64() ) << record.text;
   }
   EXPECT_EQ( out, std::set<std::string>() );
   EXPECT_EQ( orders.size(), fleet.owner()->books().lastNumber() );
   EXPECT_TRUE( std::ranges::all_of( orders, []( auto const & order ) { return order.second == 1; } ) );
}

// Adds to how many plans there were.
void oneLife( unsigned seed, std::size_t & plans ) {
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   VirtualFleet fleet( fabric, seed );
   fleet.trouble = randomTrouble( random );
   fleet.advance( 20 );
   for( int round = 0; round < 5; ++round ) {
      try {
         static_cast<void>( fleet.plan( randomRequest( random ) ) );
      } catch( Refused const & ) {
         // Its units are in another plan that is under way, or a brake is on.
      }
      fleet.advance( std::uniform_real_distribution<double>( 0, 60 )( random ) );
      brakeOrRelease( fleet, random );
      fleet.advance( std::uniform_real_distribution<double>( 10, 140 )( random ) );
      if( std::bernoulli_distribution( 0.5 )( random ) ) resumeAll( fleet );
   }
   ASSERT_EQ( fleet.broken, std::vector<std::string>() );

   // Everything is well again, and somebody looks after it: then every plan comes to its end.
   fleet.trouble = {};
   fleet.advance( 60 );
   for( char const * const site : { "", "fra", "ams" } ) fleet.brakeIs( site, false );
   for( int hour = 0; hour < 30; ++hour ) {
      fleet.advance( 120 );
      resumeAll( fleet );
   }
   ASSERT_EQ( fleet.broken, std::vector<std::string>() );
   ASSERT_TRUE( fleet.owner() );
   plans += fleet.owner()->books().plans().size();
   for( auto const & [id, plan] : fleet.owner()->books().plans() ) {
      EXPECT_EQ( plan.state, PlanState::finished )
         << id << ": " << testing::PrintToString( fleet.owner()->waitsFor( plan, fleet.now() ) );
   }
   for( auto const & [unit, slot] : fleet.owner()->books().slots() ) EXPECT_FALSE( slot.open ) << unit.text();
   expectOnRecord( fleet );
}

}  // namespace

TEST( FleetPromises, holdWhateverGoesWrong ) {
   char const * const first = std::getenv( "FLEET_SEED" );
   char const * const many = std::getenv( "FLEET_LIVES" );
   unsigned const begin = first ? static_cast<unsigned>( std::atoi( first ) ) : std::random_device()() % 1'000'000;
   unsigned const lives = many ? static_cast<unsigned>( std::atoi( many ) ) : 5;
   std::size_t plans = 0;
   for( unsigned seed = begin; seed < begin + lives && !testing::Test::HasFailure(); ++seed ) oneLife( seed, plans );
   std::cout << plans << " plans in " << lives << " lives from seed " << begin << "\n";
   EXPECT_GT( plans, 0u );
}

}  // namespace FleetTest
