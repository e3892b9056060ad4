#include "plan/Dispatcher.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kel/QuantityText.h"

namespace Fleet {

namespace {

constexpr std::size_t whoToldMost = 5;

// A unit of which nothing of the order is still to come, and that is in service.
bool backInService( Slot const & slot, UnitStatus const & unit ) {
   if( unit.acknowledged != slot.order.number || unit.state != UnitState::active ) return false;
   if( unit.outcome == Outcome::none || unit.outcome == Outcome::begun ) return false;
   // maintd has agreed to take it out: what the state says is of a moment before.
   return slot.order.want != Want::maintenance || unit.outcome != Outcome::carried;
}

std::string by( std::string const & plan ) { return plan.empty() ? "" : " by " + plan; }

}  // namespace

Dispatcher::Dispatcher( Inventory inventory, Ledger & memory, Outlet & outlet )
   : inventory_( std::move( inventory ) ), books_( memory ), outlet_( outlet ) {}

void Dispatcher::inventoryIs( Inventory inventory ) { inventory_ = std::move( inventory ); }

bool Dispatcher::statusIs( Status const & status, double now ) {
   if( !inventory_.box( status.box ) ) return false;
   auto const [heard, first] = heard_.try_emplace( status.box );
   Heard & its = heard->second;
   if( !first && status.life < its.status.life && now - its.lifeAt > lateSeconds ) its.otherAt = now;
   if( !first && !status.newerThan( its.status ) ) return false;
   if( first || status.life != its.status.life ) its.lifeAt = now;
   its.status = status;
   its.at = now;
   for( auto const & [unit, told] : status.units ) noteSeen( { status.box, unit }, told.acknowledged, "has seen" );
   return true;
}

void Dispatcher::desiredFound( Desired const & desired ) {
   for( auto const & [unit, order] : desired.orders ) {
      noteSeen( { desired.box, unit }, order.number, "is sent by the broker" );
   }
}

// Every order is kept before it goes out. So one that the books do not have was given by a later state of them.
void Dispatcher::noteSeen( UnitName const & unit, uint64_t number, std::string const & where ) {
   Slot const * const slot = books_.slot( unit );
   uint64_t const known = slot ? slot->order.number : 0;
   if( number <= known ) return;
   uint64_t & seen = unknownNumbers_[unit];
   seen = std::max( seen, number );
   if( !oldBooks_.empty() ) return;
   oldBooks_ = unit.text() + " " + where + " order " + std::to_string( number ) + ", and the newest in the books is " +
               std::to_string( known ) + ": the books are older than the fleet, as a restored backup is";
   outlet_.told( oldBooks_ + "; nothing is ordered until somebody accepts that" );
}

void Dispatcher::reachableIs( bool reachable, double now ) {
   if( reachable == reachable_ ) return;
   reachable_ = reachable;
   reachableSince_ = now;
   // The broker may have lost what it had.
   if( reachable ) {
      for( auto const & [unit, slot] : books_.slots() ) unsent_.insert( unit.box );
   }
}

Dispatcher::Heard const * Dispatcher::heard( std::string const & box ) const {
   auto const heard = heard_.find( box );
   return heard == heard_.end() ? nullptr : &heard->second;
}

UnitStatus const * Dispatcher::statusOf( UnitName const & unit ) const {
   Heard const * const box = heard( unit.box );
   if( !box ) return nullptr;
   auto const its = box->status.units.find( unit.unit );
   return its == box->status.units.end() ? nullptr : &its->second;
}

// Why nothing can be said of the units of a box; empty when something can.
std::string Dispatcher::silence( std::string const & box, double now ) const {
   Heard const * const its = heard( box );
   if( !its ) return "not heard of yet";
   double const since = now - its->at;
   bool const silent = since > silentHeartbeats * inventory_.heartbeatSeconds();
   // What it said itself is over where it is silent; that somebody else says he is it is not.
   if( silent && !isDoubled( *its, now ) ) return "silent for " + Kel::durationText( std::floor( since ) );
   return troubleOf( *its, now );
}

bool Dispatcher::isDoubled( Heard const & heard, double now ) const {
   return heard.otherAt && now - *heard.otherAt <= silentHeartbeats * inventory_.heartbeatSeconds();
}

std::string Dispatcher::troubleOf( Heard const & heard, double now ) const {
   return isDoubled( heard, now ) ? "two machines say that they are " + heard.status.box : heard.status.trouble;
}

bool Dispatcher::listening( double now ) const {
   return reachable_ && now - reachableSince_ > silentHeartbeats * inventory_.heartbeatSeconds();
}

std::string Dispatcher::standingOfSlot( Slot const & slot, UnitStatus const & unit ) const {
   if( unit.acknowledged < slot.order.number ) {
      if( slot.order.want == Want::service ) return "ordered back" + by( slot.order.plan );
      return slot.order.want == Want::nothing ? "being withdrawn" : "granted" + by( slot.order.plan );
   }
   if( unit.state != UnitState::active ) return {};
   return slot.order.want == Want::maintenance ? "granted" + by( slot.order.plan ) + ", not begun" : "returning";
}

Standing Dispatcher::standing( UnitName const & unit, double now ) const {
   if( !inventory_.has( unit ) ) return { true, "in no inventory" };
   if( std::string why = silence( unit.box, now ); !why.empty() ) return { true, std::move( why ) };
   UnitStatus const * const status = statusOf( unit );
   if( !status ) return { true, "not known to its box" };
   Slot const * const slot = books_.slot( unit );
   bool const open = slot && slot->open;
   if( open ) {
      if( std::string why = standingOfSlot( *slot, *status ); !why.empty() ) return { true, std::move( why ) };
   }
   std::string const whose = open ? by( slot->order.plan ) : "";
   switch( status->state ) {
      case UnitState::active: return { false, {} };
      case UnitState::unknown: return { true, "in no known state" };
      case UnitState::entering: return { true, "draining" + whose };
      case UnitState::inMaintenance:
         if( status->disturbed ) return { true, "in maintenance" + whose + ", and traffic is back" };
         return { true, "in maintenance" + whose };
      case UnitState::failed: return { true, "failed" };
      case UnitState::leaving: return { true, "returning" + whose };
   }
   return {};
}

std::vector<UnitName> Dispatcher::outOf( Group const & group, double now ) const {
   std::vector<UnitName> out;
   for( UnitName const & unit : group.units ) {
      if( standing( unit, now ).out ) out.push_back( unit );
   }
   return out;
}

Dispatcher::Census Dispatcher::censusAt( double now ) const {
   Census census;
   for( Box const & box : inventory_.boxes() ) {
      for( std::string const & name : box.units ) {
         UnitName const unit{ box.name, name };
         if( !standing( unit, now ).out ) continue;
         for( Group const * group : inventory_.groupsOf( unit ) ) ++census[group];
      }
   }
   return census;
}

// "s4b/fabric (draining by plan-3)", each.
std::string Dispatcher::listed( std::vector<UnitName> const & units, double now ) const {
   std::string text;
   for( std::size_t i = 0; i < std::min( units.size(), whoToldMost ); ++i ) {
      text += ( i ? ", " : "" ) + units[i].text() + " (" + standing( units[i], now ).why + ")";
   }
   if( units.size() > whoToldMost ) text += " and " + std::to_string( units.size() - whoToldMost ) + " more";
   return text;
}

std::string Dispatcher::fullGroup( UnitName const & unit, Census const & census, double now ) const {
   for( Group const * group : inventory_.groupsOf( unit ) ) {
      auto const counted = census.find( group );
      std::size_t const out = counted == census.end() ? 0 : counted->second;
      if( out < group->mayBeOut() ) continue;
      return group->name + " has " + std::to_string( out ) + " of " + std::to_string( group->units.size() ) + " out, " +
             group->budget.text() + ": " + listed( outOf( *group, now ), now );
   }
   return {};
}

std::vector<Room> Dispatcher::roomFor( std::vector<UnitName> const & units, double now ) const {
   std::map<Group const *, std::set<UnitName>> asked;
   for( UnitName const & unit : units ) {
      for( Group const * group : inventory_.groupsOf( unit ) ) asked[group].insert( unit );
   }
   std::vector<Room> rooms;
   for( Group const & group : inventory_.groups() ) {
      auto const more = asked.find( &group );
      if( more == asked.end() ) continue;
      std::vector<UnitName> who = outOf( group, now );
      std::set<UnitName> would( who.begin(), who.end() );
      would.insert( more->second.begin(), more->second.end() );
      rooms.push_back( { &group, who.size(), would.size(), std::move( who ) } );
   }
   return rooms;
}

// Not kept yet, and so not sent.
void Dispatcher::order( UnitName const & unit, Want want, Cause const & cause, std::vector<Event::Filled> budgets,
                        double now ) {
   PlanRequest const * const request = cause.request;
   Order const order{ .number = books_.numberNext(),
                      .want = want,
                      .plan = cause.plan,
                      .expires = now + orderSeconds,
                      .deadlineSeconds = request && want == Want::maintenance ? request->deadlineSeconds : 0,
                      .atDeadline = request ? request->atDeadline : AtDeadline::hold };
   books_.slotIs( unit, { order, now, true } );
   unsent_.insert( unit.box );
   std::string const text = "order " + std::to_string( order.number ) + by( cause.plan ) + ": " + unit.text() + " to " +
                            ( want == Want::nothing ? "stay as it is" : std::string( nameOf( want ) ) );
   toTell_.push_back( { .what = want == Want::maintenance ? "ordered out"
                                : want == Want::service   ? "ordered back"
                                                          : "withdrawn",
                        .text = text,
                        .unit = unit,
                        .plan = cause.plan,
                        .by = cause.by,
                        .order = order.number,
                        .budgets = std::move( budgets ) } );
}

void Dispatcher::closeSlots( double now ) {
   std::vector<std::pair<UnitName, Slot>> closed;
   for( auto const & [unit, slot] : books_.slots() ) {
      if( !slot.open || !silence( unit.box, now ).empty() ) continue;
      UnitStatus const * const status = statusOf( unit );
      if( status && backInService( slot, *status ) ) closed.emplace_back( unit, slot );
   }
   for( auto & [unit, slot] : closed ) {
      slot.open = false;
      books_.slotIs( unit, slot );
      toTell_.push_back( { .what = "in service",
                           .text = unit.text() + " is back in service",
                           .unit = unit,
                           .plan = slot.order.plan,
                           .order = slot.order.number } );
   }
}

void Dispatcher::keep( double now ) {
   std::vector<Event> const events = std::exchange( toTell_, {} );
   Records happened;
   for( Event const & event : events ) happened.push_back( recordOf( event, now ) );
   books_.keep( happened );
   for( Event const & event : events ) outlet_.told( event.text );
}

void Dispatcher::turn( double now ) {
   if( doubt().empty() ) {
      noteOutcomes();
      closeSlots( now );
      std::vector<Plan> plans;
      for( auto const & [id, plan] : books_.plans() ) {
         if( plan.state == PlanState::running ) plans.push_back( plan );
      }
      if( !plans.empty() ) {
         Census census = censusAt( now );
         for( Plan & plan : plans ) advance( plan, census, now );
      }
      keep( now );
   }
   send( now );
}

// What was not acknowledged goes out again: the broker may have been away, or have lost it.
void Dispatcher::send( double now ) {
   if( !reachable_ || !doubt().empty() ) return;
   std::map<std::string, Desired> wanted;
   for( auto const & [unit, slot] : books_.slots() ) {
      UnitStatus const * const status = statusOf( unit );
      bool const known = status && status->acknowledged == slot.order.number;
      auto const sent = sentAt_.find( unit.box );
      bool const due = sent == sentAt_.end() || now - sent->second >= inventory_.heartbeatSeconds();
      if( !known && slot.order.expires > now && due ) unsent_.insert( unit.box );
   }
   if( unsent_.empty() ) return;
   for( auto const & [unit, slot] : books_.slots() ) {
      if( !unsent_.contains( unit.box ) ) continue;
      Desired & box = wanted[unit.box];
      box.box = unit.box;
      box.orders[unit.unit] = slot.order;
   }
   unsent_.clear();
   for( auto const & [box, desired] : wanted ) {
      sentAt_[box] = now;
      outlet_.desiredIs( desired );
   }
}

}  // namespace Fleet
