// How plans go on: what the evidence says of each member, and what follows from it.
#include <algorithm>

#include "kel/QuantityText.h"
#include "plan/Dispatcher.h"

namespace Fleet {

namespace {

std::string because( std::string const & why ) { return why.empty() ? "" : ": " + why; }

// What has become of an order that the box has seen, where it is not what was ordered.
std::string outcomeFault( UnitStatus const & unit ) {
   if( unit.state == UnitState::failed ) return "has failed" + because( unit.why );
   switch( unit.outcome ) {
      case Outcome::none:
      case Outcome::begun:
      case Outcome::carried: return {};
      case Outcome::expired: return "got its order too late, and did nothing";
      case Outcome::refused: return "is refused by maintd" + because( unit.why );
      case Outcome::gaveBack: return "was not quiet by its deadline, and went back to service" + because( unit.why );
      case Outcome::undone: return "was brought back by somebody else" + because( unit.why );
   }
   return {};
}

}  // namespace

// What is wrong with a unit that has an order; empty where nothing is.
std::string Dispatcher::faultOf( UnitName const & unit, double now ) const {
   if( std::string const why = silence( unit.box, now ); !why.empty() ) return "cannot be judged: " + why;
   UnitStatus const * const status = statusOf( unit );
   Slot const * const slot = books_.slot( unit );
   if( !status ) return "is not known to its box";
   if( !slot ) return "has no order";
   if( status->acknowledged >= slot->order.number ) return outcomeFault( *status );
   bool const late = now > slot->order.expires + silentHeartbeats * inventory_.heartbeatSeconds();
   return late ? "did not take its order within " + Kel::durationText( orderSeconds ) : "";
}

Dispatcher::Finding Dispatcher::find( Plan const & plan, Member const & member, double now ) const {
   UnitStatus const * const unit = statusOf( member.unit );
   Slot const * const slot = books_.slot( member.unit );
   // It is in service, which is all that was wanted, whatever has become of the order: somebody may have seen to it.
   bool const back = slot && !slot->open && !standing( member.unit, now ).out;
   if( member.step == Step::returning && back ) return { true, {} };
   double const lasted = now - member.since;
   std::string fault = faultOf( member.unit, now );
   bool const stayed = plan.request.staySeconds && lasted >= *plan.request.staySeconds;
   // While somebody works on it a box may well be off, and when it cannot be heard, that is not the box's fault.
   bool const mayBeOff = ( member.step == Step::drained && !stayed ) || !listening( now );
   if( mayBeOff && !silence( member.unit.box, now ).empty() ) return {};
   if( !fault.empty() ) return { false, std::move( fault ) };
   bool const seen = unit->acknowledged >= slot->order.number;
   bool const late = lasted > plan.request.deadlineSeconds;
   std::string const howLong = " after " + Kel::durationText( plan.request.deadlineSeconds ) + because( unit->why );
   switch( member.step ) {
      case Step::waiting:
      case Step::done: return {};
      case Step::draining:
         if( seen && unit->state == UnitState::inMaintenance && unit->ready ) return { true, {} };
         return { false, late ? "is not quiet" + howLong : "" };
      case Step::drained:
         if( unit->disturbed ) return { false, "has traffic again" + because( unit->why ) };
         return { stayed, {} };
      case Step::returning: return { false, late ? "is not back in service" + howLong : "" };
   }
   return {};
}

// What boxes say of their orders, once each: so that the ledger has it where the books forget it.
void Dispatcher::noteOutcomes() {
   std::vector<std::pair<UnitName, Slot>> news;
   for( auto const & [unit, slot] : books_.slots() ) {
      UnitStatus const * const status = slot.open ? statusOf( unit ) : nullptr;
      if( !status || status->acknowledged != slot.order.number || status->outcome == slot.told ) continue;
      if( status->outcome != Outcome::none && status->outcome != Outcome::begun ) news.emplace_back( unit, slot );
   }
   for( auto & [unit, slot] : news ) {
      UnitStatus const & status = *statusOf( unit );
      slot.told = status.outcome;
      books_.slotIs( unit, slot );
      std::string const fault = outcomeFault( status );
      toTell_.push_back(
         { .what = std::string( nameOf( status.outcome ) ),
           .text = unit.text() + " " +
                   ( fault.empty() ? "carries out order " + std::to_string( slot.order.number ) : fault ),
           .unit = unit,
           .plan = slot.order.plan,
           .order = slot.order.number } );
   }
}

std::string Dispatcher::advanceMember( Plan const & plan, Member & member, double now ) {
   if( member.step == Step::waiting || member.step == Step::done ) return {};
   Finding finding = find( plan, member, now );
   if( !finding.over ) return std::move( finding.fault );
   member.since = now;
   switch( member.step ) {
      case Step::waiting:
      case Step::done: break;
      case Step::draining:
         member.step = Step::drained;
         toTell_.push_back( { .what = "drained",
                              .text = member.unit.text() + " is out of service, and quiet",
                              .unit = member.unit,
                              .plan = plan.id } );
         break;
      case Step::drained:
         member.step = Step::returning;
         order( member.unit, Want::service, { plan.id, plan.request.by, &plan.request }, {}, now );
         break;
      case Step::returning: member.step = Step::done; break;
   }
   return {};
}

// Leave to go out, judged over all groups of the unit and noted in one step: whoever is judged next finds it out.
std::string Dispatcher::grant( Plan const & plan, Member & member, Census & census, double now ) {
   if( !reachable_ || ( !listening( now ) && !silence( member.unit.box, now ).empty() ) ) return {};
   // A unit that is out for any other reason is none that this plan can answer for.
   if( Standing const stands = standing( member.unit, now ); stands.out ) return "is out already, " + stands.why;
   if( !fullGroup( member.unit, census, now ).empty() ) return {};
   std::vector<Event::Filled> budgets;
   for( Group const * group : inventory_.groupsOf( member.unit ) )
      budgets.push_back( { group->name, ++census[group], group->mayBeOut(), group->units.size() } );
   order( member.unit, Want::maintenance, { plan.id, plan.request.by, &plan.request }, std::move( budgets ), now );
   member.step = Step::draining;
   member.since = now;
   return {};
}

void Dispatcher::pause( Plan & plan, std::string const & why, std::string const & by ) {
   plan.state = PlanState::paused;
   plan.why = why;
   toTell_.push_back( { .what = "plan paused", .text = plan.id + " is paused: " + why, .plan = plan.id, .by = by } );
}

void Dispatcher::advanceWave( Plan & plan, Census & census, double now ) {
   Wave & wave = plan.waves[plan.wave];
   // Nothing new goes out while there is a doubt about what is out already.
   for( bool const granting : { false, true } ) {
      for( Member & member : wave ) {
         if( granting != ( member.step == Step::waiting ) ) continue;
         member.fault = granting ? grant( plan, member, census, now ) : advanceMember( plan, member, now );
         if( !member.fault.empty() ) return pause( plan, member.unit.text() + " " + member.fault, "" );
      }
   }
   if( std::ranges::all_of( wave, []( Member const & m ) { return m.step == Step::done; } ) ) plan.soakedFrom = now;
}

void Dispatcher::advanceSoak( Plan & plan, double now ) {
   for( Member const & member : plan.waves[plan.wave] ) {
      if( member.leftOut ) continue;
      if( !listening( now ) && !silence( member.unit.box, now ).empty() ) return;
      Standing const stands = standing( member.unit, now );
      if( stands.out ) return pause( plan, member.unit.text() + " is no longer in service: " + stands.why, "" );
   }
   if( now - *plan.soakedFrom < plan.request.soakSeconds ) return;
   if( plan.wave + 1 == plan.waves.size() ) {
      plan.state = PlanState::finished;
      toTell_.push_back( { .what = "plan finished", .text = plan.id + " is finished", .plan = plan.id } );
      return;
   }
   ++plan.wave;
   plan.soakedFrom.reset();
   std::string const text =
      plan.id + " begins wave " + std::to_string( plan.wave + 1 ) + " of " + std::to_string( plan.waves.size() );
   toTell_.push_back( { .what = "wave begun", .text = text, .plan = plan.id } );
}

void Dispatcher::advance( Plan & plan, Census & census, double now ) {
   Plan const before = plan;
   for( Wave const & wave : plan.waves ) {
      auto const lost = std::ranges::find_if( wave, [this]( Member const & m ) { return !inventory_.has( m.unit ); } );
      if( lost == wave.end() || lost->leftOut || lost->step == Step::done ) continue;
      pause( plan, lost->unit.text() + " is no longer in the inventory", "" );
      return books_.planIs( plan );
   }
   if( plan.soakedFrom ) {
      advanceSoak( plan, now );
   } else {
      advanceWave( plan, census, now );
   }
   if( !( plan == before ) ) books_.planIs( plan );
}

std::vector<std::string> Dispatcher::waitsFor( Plan const & plan, double now ) const {
   if( plan.over() ) return {};
   if( plan.state == PlanState::paused ) {
      // Whatever it was paused for, it cannot be resumed while a brake is on.
      std::vector<std::string> reasons{ plan.why };
      for( std::string & brake : brakesOn( plan ) ) {
         if( brake != plan.why ) reasons.push_back( std::move( brake ) );
      }
      return reasons;
   }
   if( !doubt().empty() ) return { doubt() };
   if( plan.soakedFrom ) {
      // Whoever asks may be a little behind, and is to hear of no soak that nobody asked for.
      double const left =
         std::clamp( plan.request.soakSeconds - ( now - *plan.soakedFrom ), 0.0, plan.request.soakSeconds );
      if( left == 0 ) return { "all of the wave are back in service" };
      return { "soaks for " + Kel::durationText( left ) + " more" };
   }
   std::vector<std::string> reasons;
   Census const census = censusAt( now );
   for( Member const & member : plan.waves[plan.wave] ) {
      if( member.step == Step::done ) continue;
      UnitStatus const * const unit = statusOf( member.unit );
      std::string why = member.step == Step::waiting ? fullGroup( member.unit, census, now ) : unit ? unit->why : "";
      if( member.step == Step::waiting && !reachable_ ) why = "the broker cannot be reached";
      if( member.step == Step::drained && !plan.request.staySeconds ) why = "somebody is to order it back";
      reasons.push_back( member.unit.text() + " is " + std::string( nameOf( member.step ) ) + because( why ) );
   }
   return reasons;
}

}  // namespace Fleet
