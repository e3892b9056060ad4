#include "simulate/MadeUpMaintd.h"

namespace Fleet {

namespace {

constexpr double leastDrainSeconds = 5;
constexpr double mostDrainSeconds = 20;
constexpr double leavingSeconds = 2;
constexpr uint32_t interfacesOfUnit = 4;
constexpr double strayBitsRate = 2.5e9;

}  // namespace

MadeUpMaintd::MadeUpMaintd( std::vector<std::string> const & units, std::mt19937_64 & random ) : random_( random ) {
   for( std::string const & unit : units ) units_[unit] = {};
}

void MadeUpMaintd::advance( Its & its ) const {
   if( its.state == UnitState::entering && now_ >= its.quietAt && !faults_.trafficStays ) {
      its.state = UnitState::inMaintenance;
      its.since = now_;
   } else if( its.state == UnitState::leaving && now_ >= its.since + leavingSeconds ) {
      its.state = UnitState::active;
      its.since = now_;
   }
}

UnitStatus MadeUpMaintd::statusOf( Its const & its ) const {
   UnitStatus status{
      .state = its.state, .why = {}, .since = its.since, .interfaces = interfacesOfUnit, .unsettled = {} };
   bool const out = its.state == UnitState::inMaintenance;
   status.ready = out && !faults_.trafficStays;
   status.disturbed = out && faults_.trafficStays;
   bool const loud = its.state == UnitState::entering || status.disturbed;
   status.settled = loud ? interfacesOfUnit - 1 : status.ready ? interfacesOfUnit : 0;
   if( loud ) {
      status.why = "Ethernet1 carries traffic";
      status.unsettled.push_back( { "Ethernet1", "loud", strayBitsRate, status.why } );
   }
   return status;
}

Maintd::Units MadeUpMaintd::units( double now ) {
   now_ = now;
   Units seen;
   for( auto & [name, its] : units_ ) {
      advance( its );
      seen.units[name] = { statusOf( its ), its.generation };
   }
   // It goes on when nobody can ask it.
   if( faults_.off ) return { .trouble = "maintd does not answer", .units = {} };
   return seen;
}

Maintd::Reply MadeUpMaintd::changed( std::string const & unit, UnitState to ) {
   if( faults_.off ) return { Reply::Kind::unknown, "maintd does not answer" };
   auto const its = units_.find( unit );
   if( its == units_.end() ) return { Reply::Kind::refused, "there is no unit \"" + unit + "\"" };
   std::uniform_real_distribution<double> drain( leastDrainSeconds, mostDrainSeconds );
   its->second = { to, now_, now_ + drain( random_ ), its->second.generation + 1 };
   return { Reply::Kind::agreed, {} };
}

Maintd::Reply MadeUpMaintd::enter( std::string const & unit ) { return changed( unit, UnitState::entering ); }

Maintd::Reply MadeUpMaintd::exit( std::string const & unit ) { return changed( unit, UnitState::leaving ); }

}  // namespace Fleet
