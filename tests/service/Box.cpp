#include "Box.h"

namespace Service {

std::string fileWith( std::string const & stages, std::string const & fabric ) {
   return R"(
profiles:
  slow: { threshold: 100kbps, sample-interval: 10s, load-interval: 30s }
  fast: { threshold: 1Mbps, sample-interval: 1s, load-interval: 2s }
default-profile: slow
groups:
  ups: { interfaces: [)" +
          fabric + R"(] }
  downs: { interfaces: [up2, down1] }
  quick: { interfaces: [down1], profile: fast }
units:
  fabric: { groups: [ups] }
  rack: { groups: [downs] }
  shelf: { groups: [quick] }
)" + ( stages.empty() ? "" : "stages:\n" + stages );
}

Config::Config configOf( std::string const & text ) { return Config::parse( text, "test.yaml" ); }

void ProgramsOfTest::run( HookRequest const & request, Done done ) {
   started.push_back( request.stage + " " + enumName( request.op ) + " " + request.unit + " " +
                      std::to_string( request.generation ) );
   running_[request.unit] = std::move( done );
}

void ProgramsOfTest::giveUp( std::string const & unit ) {
   givenUp.push_back( unit );
   ASSERT_EQ( running_.erase( unit ), 1u ) << "nothing was running";
}

void ProgramsOfTest::end( std::string const & unit, std::string const & failure ) {
   auto const found = running_.extract( unit );
   ASSERT_TRUE( found ) << "nothing is running for " << unit;
   found.mapped()( failure );
}

Box::Box() {
   for( char const * name : { "up1", "up2", "down1" } ) link( name, true );
}

Box::~Box() {
   if( service_ ) end();
}

void Box::begin( std::string const & file ) {
   inTurn( [&] {
      service_ = std::make_unique<MaintenanceService>(
         MaintenanceService::Host{ database_,
                                   state_,
                                   world_.countersRead(),
                                   world_.linkRecords(),
                                   programs_,
                                   eventLog_,
                                   {},
                                   [this]( Lumo::IntfId intf ) { return neverShut_[intf]; } },
         configOf( file ) );
      world_.start();
   } );
}

void Box::end() {
   world_.stop();
   service_.reset();
}

void Box::crash() {
   world_.crash();
   // Reachable for ever, so that no destructor of its ever runs, and the leak checker knows that it is meant.
   static auto * const graves = new std::vector<std::unique_ptr<MaintenanceService>>;
   graves->push_back( std::move( service_ ) );
   programs_ = {};
   events_.clear();
}

std::vector<std::string> Box::reload( std::string const & file ) {
   std::vector<std::string> why;
   inTurn( [&] { why = service_->reload( configOf( file ) ); } );
   return why;
}

void Box::link( std::string const & name, bool up, std::optional<Lumo::IntfKind> kind ) {
   inTurn( [&] { world_.links().linkIs( Lumo::IntfId( name ), { up, kind, {}, {} } ); } );
}

void Box::linkGone( std::string const & name ) {
   inTurn( [&] { world_.links().linkDel( Lumo::IntfId( name ) ); } );
}

void Box::traffic( std::string const & name, double inBitsRate, double outBitsRate ) {
   inTurn( [&] {
      world_.counters().bitsPerSecondIs( Lumo::IntfId( name ), Sim::Direction::in, inBitsRate );
      world_.counters().bitsPerSecondIs( Lumo::IntfId( name ), Sim::Direction::out, outBitsRate );
   } );
}

UnitService::Answer Box::enter( std::string const & unit, std::vector<std::string> const & without ) {
   UnitService::Answer answer{};
   inTurn( [&] { answer = service_->units().enter( unit, without, "ann" ); } );
   return answer;
}

UnitService::Answer Box::exit( std::string const & unit ) {
   UnitService::Answer answer{};
   inTurn( [&] { answer = service_->units().exit( unit, "bob" ); } );
   return answer;
}

void Box::programEnds( std::string const & unit, std::string const & failure ) {
   inTurn( [&] { programs_.end( unit, failure ); } );
}

State Box::state( std::string const & unit ) const { return state_.unitStatus->status( unit )->state(); }

std::string Box::stage( std::string const & unit ) const { return service_->units().stage( unit ); }

bool Box::ready( std::string const & unit ) { return service_->views().ready( unit )->ready; }

Kel::Ptr<Evidence::Window const> Box::window( std::string const & unit ) const {
   return service_->units().window( unit );
}

std::string Box::stages( std::string const & unit ) const {
   std::string text;
   for( auto [number, run] : window( unit )->stageRunIteratorConst() ) {
      text += ( text.empty() ? "" : ", " ) + run.stage.str() + " " + enumName( run.result );
   }
   return text;
}

Verdict Box::verdict( std::string const & unit, std::string const & intf ) const {
   return service_->ledger().accounts()->unit( unit )->account( Lumo::IntfId( intf ) )->verdict();
}

bool Box::monitored( std::string const & intf ) const {
   return state_.monIntfStatus->monIntfStatus( Lumo::IntfId( intf ) ) != nullptr;
}

std::vector<std::string> Box::events( std::string const & kind ) const {
   std::vector<std::string> found;
   for( Event const & event : events_ ) {
      if( event.kind.view() == kind ) found.push_back( event.unit->str() + ": " + event.text.str() );
   }
   return found;
}

std::string Box::records() const {
   std::string text;
   for( std::string const & path : database_->paths() ) {
      auto const entity = database_->getEntity( path );
      for( auto const & attribute : entity->kelTypeInfo().attributes() ) {
         text += path + "." + attribute->name() + " " + Kel::toJson( attribute->get( *entity ) ) + "\n";
      }
   }
   return text;
}

std::size_t Box::stageRecords() const {
   std::size_t count = 0;
   for( auto const * s : { &state_.enter, &state_.exit } ) {
      count += s->progress->progresss() + s->completion->statuss() + s->agentStatus->completes();
   }
   return count;
}

}  // namespace Service
