// What people ask of the dispatcher.
#include <algorithm>

#include "plan/Dispatcher.h"

namespace Fleet {

namespace {

constexpr char const * siteLabel = "site";
constexpr std::size_t plansKept = 100;  // that are over: each names all of its units

bool isOfSite( Box const & box, std::string const & site ) {
   auto const its = box.labels.find( siteLabel );
   return its != box.labels.end() && its->second == site;
}

bool touchesSite( Inventory const & inventory, Plan const & plan, std::string const & site ) {
   if( site.empty() ) return true;
   for( Wave const & wave : plan.waves ) {
      for( Member const & member : wave ) {
         Box const * const box = inventory.box( member.unit.box );
         if( box && isOfSite( *box, site ) ) return true;
      }
   }
   return false;
}

std::string counted( std::size_t count, char const * what ) {
   return std::to_string( count ) + " " + what + ( count == 1 ? "" : "s" );
}

std::string brakeNamed( std::string const & site ) {
   return site.empty() ? "the brake of all sites" : "the brake of site " + site;
}

std::string brakeSaid( std::string const & site, Brake const & brake ) {
   return brakeNamed( site ) + " is on, by " + brake.by;
}

}  // namespace

std::string Dispatcher::brakeOn( UnitName const & unit ) const {
   Box const * const box = inventory_.box( unit.box );
   for( auto const & [site, brake] : books_.brakes() ) {
      if( site.empty() || ( box && isOfSite( *box, site ) ) ) return brakeSaid( site, brake );
   }
   return {};
}

std::vector<std::string> Dispatcher::brakesOn( Plan const & plan ) const {
   std::vector<std::string> on;
   for( auto const & [site, brake] : books_.brakes() ) {
      if( touchesSite( inventory_, plan, site ) ) on.push_back( brakeSaid( site, brake ) );
   }
   return on;
}

std::string Dispatcher::planMade( PlanRequest const & request, double now ) {
   if( !doubt().empty() ) throw Refused( doubt() );
   std::vector<UnitName> const units = selected( inventory_, request.select );
   for( UnitName const & unit : units ) {
      if( std::string const brake = brakeOn( unit ); !brake.empty() ) throw Refused( brake );
      for( auto const & [id, plan] : books_.plans() ) {
         if( plan.over() ) continue;
         for( Wave const & wave : plan.waves ) {
            auto const its = std::ranges::find( wave, unit, &Member::unit );
            if( its == wave.end() || its->step == Step::done ) continue;
            throw Refused( unit.text() + " is in " + id + ", which is " + std::string( nameOf( plan.state ) ) );
         }
      }
   }
   // Refused or not is known before anything is noted.
   Layout const layout = layoutOf( inventory_, units, request.waves );
   Plan plan{ .id = "plan-" + std::to_string( books_.planNumberNext() ), .request = request, .made = now };
   for( auto const & wave : layout.waves ) {
      Wave & members = plan.waves.emplace_back();
      for( UnitName const & unit : wave ) members.push_back( { .unit = unit, .since = now } );
   }
   books_.planIs( plan );
   forgetOldPlans();
   std::string const text = plan.id + " by " + request.by + ": " + counted( units.size(), "unit" ) + " in " +
                            counted( plan.waves.size(), "wave" );
   toTell_.push_back( { .what = "plan made", .text = text, .plan = plan.id, .by = request.by } );
   keep( now );
   return plan.id;
}

// The oldest of those that are over make room.
void Dispatcher::forgetOldPlans() {
   std::vector<std::pair<double, std::string>> over;
   for( auto const & [id, plan] : books_.plans() ) {
      if( plan.over() ) over.emplace_back( plan.made, id );
   }
   if( over.size() <= plansKept ) return;
   std::ranges::sort( over );
   over.resize( over.size() - plansKept );
   for( auto const & [made, id] : over ) books_.planDel( id );
}

Plan Dispatcher::planUnderWay( std::string const & id ) const {
   auto const plan = books_.plans().find( id );
   if( plan == books_.plans().end() ) throw Refused( "there is no plan \"" + id + "\"" );
   if( plan->second.over() ) throw Refused( id + " is " + std::string( nameOf( plan->second.state ) ) );
   return plan->second;
}

void Dispatcher::planPaused( std::string const & id, std::string const & by, double now ) {
   Plan plan = planUnderWay( id );
   if( plan.state == PlanState::paused ) throw Refused( id + " is paused already: " + plan.why );
   pause( plan, "asked for by " + by, by );
   books_.planIs( plan );
   keep( now );
}

void Dispatcher::planResumed( std::string const & id, std::vector<UnitName> const & without, std::string const & by,
                              double now ) {
   Plan plan = planUnderWay( id );
   if( plan.state == PlanState::running && without.empty() ) throw Refused( id + " is running already" );
   if( !doubt().empty() ) throw Refused( doubt() );
   for( UnitName const & unit : without ) {
      bool const known = std::ranges::any_of( plan.waves, [&]( Wave const & wave ) {
         return std::ranges::find( wave, unit, &Member::unit ) != wave.end();
      } );
      if( !known ) throw Refused( unit.text() + " is not in " + id );
   }
   // Before any member is taken up again, which may give an order.
   if( auto const on = brakesOn( plan ); !on.empty() ) throw Refused( on.front() );
   for( Wave & wave : plan.waves ) {
      for( Member & member : wave ) {
         member.fault.clear();
         if( member.step == Step::done ) continue;
         member.leftOut = std::ranges::find( without, member.unit ) != without.end();
         if( member.leftOut ) {
            std::string const text = id + " goes on without " + member.unit.text();
            toTell_.push_back( { .what = "left out", .text = text, .unit = member.unit, .plan = id, .by = by } );
         }
         member.step = member.leftOut ? Step::done : stepAnew( plan, member, now );
         // It has all of its time again, less what it has stayed already.
         if( member.step != Step::drained ) member.since = now;
      }
   }
   plan.state = PlanState::running;
   plan.why.clear();
   if( plan.soakedFrom ) plan.soakedFrom = now;
   books_.planIs( plan );
   toTell_.push_back( { .what = "plan resumed", .text = plan.id + " goes on", .plan = plan.id, .by = by } );
   keep( now );
}

// Where a member is to be taken up again: from the beginning where nothing of its order is left, and with a new order
// where the old one was not taken.
Step Dispatcher::stepAnew( Plan const & plan, Member const & member, double now ) {
   Slot const * const slot = books_.slot( member.unit );
   if( member.step == Step::waiting || !slot ) return member.step;
   if( !slot->open && slot->order.want != Want::service ) return Step::waiting;
   UnitStatus const * const unit = statusOf( member.unit );
   bool const seen = unit && unit->acknowledged >= slot->order.number;
   bool const refused = seen && ( unit->outcome == Outcome::expired || unit->outcome == Outcome::refused );
   if( !slot->open || ( seen ? !refused : now <= slot->order.expires ) ) return member.step;
   // The unit counts as out all the while, so this needs no other leave.
   order( member.unit, slot->order.want, { plan.id, plan.request.by, &plan.request }, {}, now );
   return member.step;
}

void Dispatcher::planCancelled( std::string const & id, std::string const & by, double now ) {
   Plan plan = planUnderWay( id );
   plan.state = PlanState::cancelled;
   plan.why = "by " + by;
   books_.planIs( plan );
   toTell_.push_back( { .what = "plan cancelled", .text = id + " is cancelled by " + by, .plan = id, .by = by } );
   keep( now );
}

void Dispatcher::returned( std::vector<UnitName> const & units, std::string const & by, double now ) {
   if( !doubt().empty() ) throw Refused( doubt() );
   for( UnitName const & unit : units ) {
      if( !inventory_.has( unit ) ) throw Refused( "there is no unit \"" + unit.text() + "\"" );
      Standing const stands = standing( unit, now );
      if( !stands.out ) throw Refused( unit.text() + " is in service" );
   }
   for( UnitName const & unit : units ) {
      std::string whose;
      auto const plans = books_.plans();
      for( auto [id, plan] : plans ) {
         if( plan.over() ) continue;
         for( Wave & wave : plan.waves ) {
            auto const its = std::ranges::find( wave, unit, &Member::unit );
            if( its == wave.end() || its->step == Step::waiting || its->step == Step::done ) continue;
            whose = id;
            bool const wasDrained = its->step == Step::drained || its->step == Step::returning;
            its->step = Step::returning;
            its->since = now;
            // Whoever ends a drain before its time has seen something that the plan has not.
            if( plan.state == PlanState::running && !wasDrained )
               pause( plan, unit.text() + " was ordered back by " + by, by );
            books_.planIs( plan );
         }
      }
      order( unit, Want::service, { whose, by }, {}, now );
   }
   keep( now );
   send( now );
}

void Dispatcher::braked( std::string const & site, std::string const & by, double now ) {
   if( auto const on = books_.brakes().find( site ); on != books_.brakes().end() ) {
      throw Refused( brakeNamed( site ) + " is on already, by " + on->second.by );
   }
   auto const & boxes = inventory_.boxes();
   if( !site.empty() && std::ranges::none_of( boxes, [&]( Box const & box ) { return isOfSite( box, site ); } ) ) {
      throw Refused( "no box is of site \"" + site + "\"" );
   }
   Brake const brake{ by, now };
   std::string const said = brakeSaid( site, brake );
   books_.brakeIs( site, brake );
   toTell_.push_back( { .what = "brake on", .text = said, .by = by } );
   auto const plans = books_.plans();
   for( auto [id, plan] : plans ) {
      if( plan.state != PlanState::running || !touchesSite( inventory_, plan, site ) ) continue;
      pause( plan, said, by );
      books_.planIs( plan );
   }
   keep( now );
}

void Dispatcher::unbraked( std::string const & site, std::string const & by, double now ) {
   auto const on = books_.brakes().find( site );
   if( on == books_.brakes().end() ) throw Refused( brakeNamed( site ) + " is not on" );
   std::string const said = brakeSaid( site, on->second );
   books_.brakeDel( site );
   // Whoever asks what such a plan waits for is not to look for a brake that is on no longer.
   auto const plans = books_.plans();
   for( auto [id, plan] : plans ) {
      if( plan.state != PlanState::paused || plan.why != said ) continue;
      plan.why = brakeNamed( site ) + " was on, and is released";
      books_.planIs( plan );
   }
   toTell_.push_back( { .what = "brake off", .text = brakeNamed( site ) + " is off, by " + by, .by = by } );
   keep( now );
}

void Dispatcher::doubtAccepted( std::string const & by, double now ) {
   if( !hold_.empty() ) throw Refused( hold_ );
   if( oldBooks_.empty() ) throw Refused( "there is no doubt about the books" );
   uint64_t newest = books_.lastNumber();
   for( auto const & [unit, number] : unknownNumbers_ ) newest = std::max( newest, number );
   books_.lastNumberIs( newest );
   for( auto const & [unit, number] : unknownNumbers_ ) order( unit, Want::nothing, { "", by }, {}, now );
   toTell_.push_back( { .what = "books accepted", .text = by + " accepts the books: " + oldBooks_, .by = by } );
   keep( now );
   unknownNumbers_.clear();
   oldBooks_.clear();
   send( now );
}

}  // namespace Fleet
