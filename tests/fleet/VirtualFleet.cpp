#include "VirtualFleet.h"

#include <algorithm>

namespace FleetTest {

namespace {

constexpr double stepSeconds = 0.5;
constexpr double rejoinSeconds = 30;  // at most, until an agent has found the broker again

}  // namespace

void MortalMemory::commit( Changes const & changes, Records const & happened ) {
   bool const told = writesLeft_-- == 0;
   bool const dies = told || ( random && std::bernoulli_distribution( deadly )( *random ) );
   // Half of the deaths are before the disk has it, and half after.
   if( dies && ( told ? before_ : std::bernoulli_distribution( 0.5 )( *random ) ) ) throw Death();
   BookLedger::commit( changes, happened );
   if( dies ) throw Death();
}

// Units that take their time to drain and to return, and now and then refuse, or do not say what they have done.
class VirtualFleet::VirtualMaintd final : public Maintd {
 public:
   struct Real {
      UnitState state = UnitState::active;
      uint64_t generation = 0;
      double until = 0;      // s, when it comes into its next state
      bool stays = false;    // its traffic
      bool byOrder = false;  // it is out because an agent has asked
      int drains = 0;
   };

   VirtualMaintd( VirtualFleet & fleet, std::string box, std::vector<std::string> const & units )
      : fleet_( fleet ), box_( std::move( box ) ) {
      for( std::string const & unit : units ) real[unit];
   }

   Units units( double ) override {
      Units all;
      for( auto const & [name, its] : real ) {
         Unit & unit = all.units[name];
         unit.generation = its.generation;
         unit.status.state = its.state;
         unit.status.ready = its.state == UnitState::inMaintenance && !its.stays;
         unit.status.disturbed = its.state == UnitState::inMaintenance && its.stays;
         unit.status.why = its.stays && its.state != UnitState::active ? "eth0: out 3 Mbps" : "";
      }
      return all;
   }

   Reply enter( std::string const & unit ) override { return asked( unit, true ); }
   Reply exit( std::string const & unit ) override { return asked( unit, false ); }

   void goOn( double now ) {
      for( auto & [name, its] : real ) {
         if( its.state == UnitState::entering && !its.stays && now >= its.until ) its.state = UnitState::inMaintenance;
         if( its.state == UnitState::entering && fleet_.happens( fleet_.trouble.rollback * stepSeconds ) ) {
            its.state = UnitState::leaving;
         }
         if( its.state == UnitState::leaving && now >= its.until ) its.state = UnitState::active;
      }
   }

   bool take( Real & its, bool in ) {
      bool const out = its.state == UnitState::entering || its.state == UnitState::inMaintenance;
      if( in == out && ( in || its.state == UnitState::active || its.state == UnitState::leaving ) ) return false;
      ++its.generation;
      its.state = in ? UnitState::entering : UnitState::leaving;
      its.until = fleet_.now_ + fleet_.upTo( 20 );
      if( in && fleet_.happens( fleet_.trouble.neverQuiet ) ) its.stays = true;
      return true;
   }

   std::map<std::string, Real> real;

 private:
   Reply asked( std::string const & unit, bool in );

   VirtualFleet & fleet_;
   std::string const box_;
};

struct VirtualFleet::VirtualBox {
   VirtualBox( VirtualFleet & in, Box const & box )
      : fleet( in ), name( box.name ), maintd( in, box.name, box.units ), skew( 0 ) {
      memory.random = &in.random_;
   }

   [[nodiscard]] bool connected() const { return on && agent && fleet.broker_ && fleet.now_ >= reaches; }
   [[nodiscard]] double clock() const { return fleet.now_ + skew; }

   // Which order it is stands in the agent's memory: it is kept before maintd is asked.
   void handleDrain( std::string const & unit ) {
      Memory::Rows const rows = memory.rows();
      auto const row = rows.find( "order/" + unit );
      std::string const order = row == rows.end() ? "none" : row->second.substr( 0, row->second.find( ',' ) );
      if( !drained.insert( unit + order ).second ) {
         fleet.broken.push_back( name + "/" + unit + " was drained twice for " + order );
      }
   }

   void step() {
      maintd.goOn( fleet.now_ );
      if( !on || fleet.now_ < back ) return;
      memory.deadly = fleet.trouble.death;
      try {
         if( !agent ) {
            skew = fleet.upTo( 2 * fleet.trouble.skew ) - fleet.trouble.skew;
            agent = std::make_unique<BoxAgent>( name, memory, maintd, fleet.known_.heartbeatSeconds(), clock() );
            reaches = std::max( reaches, fleet.now_ + fleet.upTo( 3 ) );
            joined = false;
         }
         bool const now = connected();
         agent->connectedIs( now );
         if( now && ( !joined || fleet.now_ >= nextRead ) ) read();
         joined = now;
         if( auto const status = agent->turn( clock() ) ) fleet.post( { 0, name, textOf( *status ), false } );
      } catch( Death const & ) {
         agent.reset();
         back = fleet.now_ + fleet.upTo( 20 );
      }
   }

   // Straight from the broker: on joining, and every now and then.
   void read() {
      nextRead = fleet.now_ + 60;
      auto const desired = fleet.desired_.find( name );
      if( desired != fleet.desired_.end() ) agent->desiredIs( desiredFrom( desired->second ) );
   }

   VirtualFleet & fleet;
   std::string const name;
   VirtualMaintd maintd;
   MortalMemory memory;
   std::unique_ptr<BoxAgent> agent;
   double skew;
   bool on = true;
   bool joined = false;
   double back = 0;     // s, when the agent starts again
   double reaches = 0;  // s, from when on it has the broker again
   double nextRead = 0;
   std::set<std::string> drained;  // unit and order
};

Maintd::Reply VirtualFleet::VirtualMaintd::asked( std::string const & unit, bool in ) {
   bool const answers = !fleet_.happens( fleet_.trouble.noAnswer );
   if( !answers && fleet_.happens( 0.5 ) ) return { Reply::Kind::unknown, "no answer" };
   if( answers && fleet_.happens( fleet_.trouble.refusal ) ) return { Reply::Kind::refused, "not enough disk" };
   Real & its = real[unit];
   if( take( its, in ) && in ) {
      its.byOrder = true;
      ++its.drains;
      fleet_.boxes_.at( box_ )->handleDrain( unit );
   }
   return { answers ? Reply::Kind::agreed : Reply::Kind::unknown, "" };
}

VirtualFleet::VirtualFleet( std::string inventory, unsigned seed )
   : random_( seed ), inventory_( std::move( inventory ) ), known_( readInventory( inventory_, "inventory" ) ) {
   memory_.random = &random_;
   for( Box const & box : known_.boxes() ) boxes_[box.name] = std::make_unique<VirtualBox>( *this, box );
}

VirtualFleet::~VirtualFleet() = default;

bool VirtualFleet::happens( double probability ) { return std::bernoulli_distribution( probability )( random_ ); }
double VirtualFleet::upTo( double most ) {
   return most <= 0 ? 0 : std::uniform_real_distribution<double>( 0, most )( random_ );
}

void VirtualFleet::post( Letter letter ) {
   if( !broker_ || happens( trouble.lost ) ) return;
   if( letter.desired ) desired_[letter.box] = letter.text;
   do {
      letter.due = now_ + upTo( trouble.mostDelay );
      letters_.push_back( letter );
   } while( happens( trouble.repeated ) );
}

void VirtualFleet::desiredIs( Desired const & desired ) {
   if( now_ >= ownerReaches_ ) post( { 0, desired.box, textOf( desired ), true } );
}

void VirtualFleet::deliver() {
   std::vector<Letter> due;
   for( auto letter = letters_.begin(); letter != letters_.end(); ) {
      if( letter->due > now_ ) {
         ++letter;
         continue;
      }
      due.push_back( *letter );
      letter = letters_.erase( letter );
   }
   std::ranges::shuffle( due, random_ );
   for( Letter const & letter : due ) {
      try {
         if( !letter.desired ) {
            if( owner_ && broker_ && now_ >= ownerReaches_ ) owner_->statusIs( statusFrom( letter.text ), now_ );
         } else if( VirtualBox & box = *boxes_.at( letter.box ); box.connected() ) {
            box.agent->desiredIs( desiredFrom( letter.text ) );
         }
      } catch( Death const & ) {
         boxes_.at( letter.box )->agent.reset();
      }
   }
}

void VirtualFleet::brokerIs( bool there ) {
   broker_ = there;
   brokerBack_ = there ? 0 : std::numeric_limits<double>::infinity();
   if( there ) {
      for( auto & [name, box] : boxes_ ) box->reaches = now_ + upTo( rejoinSeconds );
      ownerReaches_ = now_ + upTo( 5 );
      return;
   }
   letters_.clear();
   // What it has is in its memory only.
   desired_.clear();
}

void VirtualFleet::stepBroker() {
   if( broker_ && happens( trouble.brokerGone * stepSeconds ) ) {
      brokerIs( false );
      brokerBack_ = now_ + upTo( 120 );
   } else if( !broker_ && now_ >= brokerBack_ ) {
      brokerIs( true );
   }
}

void VirtualFleet::stepBoxes() {
   for( auto & [name, box] : boxes_ ) {
      for( auto & [unit, its] : box->maintd.real ) {
         if( !happens( trouble.byHand * stepSeconds ) ) continue;
         if( its.state == UnitState::active ) {
            enteredByHand( { name, unit } );
         } else {
            exitedByHand( { name, unit } );
         }
      }
      if( box->on && happens( trouble.boxOff * stepSeconds ) ) {
         box->agent.reset();
         box->back = now_ + upTo( 120 );
      }
      box->step();
   }
}

void VirtualFleet::stepOwner() {
   if( now_ < ownerBack_ ) return;
   ask( [this]( Dispatcher & owner ) {
      owner.reachableIs( broker_ && now_ >= ownerReaches_, now_ );
      owner.turn( now_ );
   } );
}

void VirtualFleet::ask( std::function<void( Dispatcher & )> const & what ) {
   memory_.deadly = trouble.death;
   try {
      if( !owner_ ) owner_ = std::make_unique<Dispatcher>( readInventory( inventory_, "inventory" ), memory_, *this );
      what( *owner_ );
   } catch( Death const & ) {
      kill();
   }
}

std::string VirtualFleet::plan( PlanRequest const & request ) {
   std::string id;
   ask( [&]( Dispatcher & owner ) { id = owner.planMade( request, now_ ); } );
   return id;
}

Plan const & VirtualFleet::planOf( std::string const & id ) const { return owner_->books().plans().at( id ); }

void VirtualFleet::brakeIs( std::string const & site, bool on ) {
   if( !on ) brakes_.erase( site );
   // Whoever gets no answer asks again.
   do {
      ask( [&]( Dispatcher & owner ) {
         // What was ordered up to now was ordered without it, also by one who has died since.
         judgeBraked();
         bool const was = owner.books().brakes().contains( site );
         if( on && !was ) owner.braked( site, "bob", now_ );
         if( !on && was ) owner.unbraked( site, "bob", now_ );
      } );
   } while( !owner_ );
   if( on ) brakes_.insert( site );
}

bool VirtualFleet::isBraked( Plan const & plan ) const {
   for( Wave const & wave : plan.waves ) {
      for( Member const & member : wave ) {
         auto const & labels = known_.box( member.unit.box )->labels;
         auto const site = labels.find( "site" );
         if( brakes_.contains( "" ) || ( site != labels.end() && brakes_.contains( site->second ) ) ) return true;
      }
   }
   return false;
}

void VirtualFleet::kill() {
   owner_.reset();
   ownerBack_ = now_ + upTo( 20 );
}

void VirtualFleet::killAgent( std::string const & box ) { boxes_.at( box )->agent.reset(); }

void VirtualFleet::trafficLeaves( std::string const & box ) {
   for( auto & [name, its] : boxes_.at( box )->maintd.real ) its.stays = false;
}
void VirtualFleet::trafficStays( std::string const & box ) {
   for( auto & [name, its] : boxes_.at( box )->maintd.real ) its.stays = true;
}
void VirtualFleet::tidied( std::string const & box ) {
   trafficLeaves( box );
   for( auto & [name, its] : boxes_.at( box )->maintd.real ) {
      if( !its.byOrder ) exitedByHand( { box, name } );
   }
}
void VirtualFleet::boxIs( std::string const & box, bool on ) {
   boxes_.at( box )->on = on;
   if( !on ) boxes_.at( box )->agent.reset();
}
void VirtualFleet::enteredByHand( UnitName const & unit ) {
   auto & its = boxes_.at( unit.box )->maintd.real.at( unit.unit );
   if( boxes_.at( unit.box )->maintd.take( its, true ) ) its.byOrder = false;
}
void VirtualFleet::exitedByHand( UnitName const & unit ) {
   auto & maintd = boxes_.at( unit.box )->maintd;
   maintd.take( maintd.real.at( unit.unit ), false );
}
UnitState VirtualFleet::stateOf( UnitName const & unit ) const {
   return boxes_.at( unit.box )->maintd.real.at( unit.unit ).state;
}
int VirtualFleet::drainsOf( UnitName const & unit ) const {
   return boxes_.at( unit.box )->maintd.real.at( unit.unit ).drains;
}

void VirtualFleet::judge() {
   for( Group const & group : known_.groups() ) {
      std::vector<std::string> out;
      for( UnitName const & unit : group.units ) {
         auto const & its = boxes_.at( unit.box )->maintd.real.at( unit.unit );
         if( its.state != UnitState::active && its.byOrder ) out.push_back( unit.text() );
      }
      if( out.size() <= group.mayBeOut() ) continue;
      std::string who;
      for( std::string const & unit : out ) who += " " + unit;
      broken.push_back( group.name + " has " + group.budget.text() + ", and out are" + who );
   }
   judgeClosed();
   judgeBraked();
}

void VirtualFleet::judgeBraked() {
   if( !owner_ ) return;
   for( auto const & [unit, slot] : owner_->books().slots() ) {
      if( slot.order.number <= newest_ || slot.order.plan.empty() || !isBraked( planOf( slot.order.plan ) ) ) continue;
      broken.push_back( slot.order.plan + " orders " + unit.text() + " to " + std::string( nameOf( slot.order.want ) ) +
                        " under a brake" );
   }
   newest_ = owner_->books().lastNumber();
}

// A slot that has just been closed: its unit is in service, and its box will do nothing more for the order.
void VirtualFleet::judgeClosed() {
   if( !owner_ ) return open_.clear();
   std::set<UnitName> open;
   for( auto const & [unit, slot] : owner_->books().slots() ) {
      if( slot.open ) open.insert( unit );
      if( slot.open || !open_.contains( unit ) ) continue;
      UnitState const state = stateOf( unit );
      // Whoever takes it out by hand may do so just now.
      if( state != UnitState::active && boxes_.at( unit.box )->maintd.real.at( unit.unit ).byOrder ) {
         broken.push_back( unit.text() + " counts as in service, and is " + std::string( nameOf( state ) ) );
      }
   }
   open_ = std::move( open );
}

void VirtualFleet::step() {
   now_ += stepSeconds;
   stepBroker();
   deliver();
   stepBoxes();
   stepOwner();
   judge();
}

void VirtualFleet::advance( double seconds ) {
   for( double const end = now_ + seconds; now_ < end; ) step();
}

}  // namespace FleetTest
