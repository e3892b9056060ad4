#include "controller/Owner.h"

#include <algorithm>
#include <cmath>

#include "kel/QuantityText.h"

namespace Fleet {

using Service::Severity;

namespace {

constexpr std::string_view statusKeys = "status.";
constexpr std::string_view desiredKeys = "desired.";
constexpr std::string_view ownerKey = "owner";
// A turn; more at a time would be answered by more than is taken in at a time.
constexpr std::size_t askedATurn = 500;
constexpr double lineSeconds = 5;

}  // namespace

Owner::Owner( Inventory inventory, Parts parts )
   : parts_( std::move( parts ) ),
     now_( std::floor( parts_.wallTime() ) ),
     dispatcher_( std::move( inventory ), parts_.memory, *this ),
     rivals_( parts_.where ) {}

void Owner::inventoryIs( Inventory inventory ) { dispatcher_.inventoryIs( std::move( inventory ) ); }

// In whole seconds, which is as exact as it need be, and what people read has no fractions.
void Owner::readClock() {
   double const wall = std::floor( parts_.wallTime() );
   if( wall >= now_ + awaySeconds ) rivals_.listenAnew();
   if( wall >= now_ ) {
      if( !clockTrouble_.empty() ) parts_.log( Severity::notice, "the clock is where it was: time goes on" );
      clockTrouble_.clear();
      now_ = wall;
      return;
   }
   bool const first = clockTrouble_.empty();
   clockTrouble_ = "the clock went back by " + Kel::durationText( now_ - wall ) + ", and time stands still until then";
   if( first ) parts_.log( Severity::error, clockTrouble_ );
}

void Owner::turn() {
   readClock();
   rivals_.turn();
   for( Broker::Letter const & letter : parts_.broker.arrived() ) take( letter );
   connectedIs( parts_.broker.connected() );
   lookForRivals();
   dispatcher_.reachableIs( connected_ && found() && rivals_.listened(), now_ );
   dispatcher_.holdIs( hold() );
   decide();
}

void Owner::connectedIs( bool connected ) {
   if( connected && !connected_ ) rivals_.listenAnew();
   connected_ = connected;
   if( !connected ) asked_ = false;
   if( connected && rivals_.due() ) static_cast<void>( parts_.broker.put( std::string( ownerKey ), rivals_.saying() ) );
}

void Owner::lookForRivals() {
   std::string const & other = rivals_.other();
   if( other == rival_ ) return;
   rival_ = other;
   if( rival_.empty() ) return parts_.log( Severity::notice, "no other owner of the fleet is heard any more" );
   parts_.log( Severity::error, hold() );
}

std::string Owner::hold() const {
   if( !rival_.empty() ) {
      return "another owner of this fleet is running (" + rival_ +
             "): neither orders anything until one of them is stopped";
   }
   return found_ ? "" : "what was ordered before the start is not known yet, as the broker has not told it";
}

bool Owner::found() {
   if( found_ ) return true;
   if( !asked_ ) {
      asked_ = true;
      toAsk_.clear();
      for( Box const & box : dispatcher_.inventory().boxes() ) toAsk_.push_back( box.name );
   }
   if( !toAsk_.empty() ) {
      askedAt_ = now_;
      for( std::size_t i = 0; i < askedATurn && !toAsk_.empty(); ++i, toAsk_.pop_front() )
         parts_.broker.read( std::string( desiredKeys ) + toAsk_.front() );
      return false;
   }
   found_ = now_ > askedAt_ + foundSeconds;
   return found_;
}

void Owner::decide() {
   try {
      dispatcher_.turn( now_ );
      if( !memoryTrouble_.empty() ) parts_.log( Severity::notice, "what is decided can be kept again" );
      memoryTrouble_.clear();
   } catch( MemoryFault const & fault ) {
      bool const again = memoryTrouble_ == fault.what() && now_ < memoryToldAt_ + sayAgainSeconds;
      memoryTrouble_ = fault.what();
      if( again ) return;
      memoryToldAt_ = now_;
      parts_.log( Severity::error, "nothing is ordered, as it cannot be kept: " + memoryTrouble_ );
   }
}

void Owner::desiredIs( Desired const & desired ) {
   // What is not sent now, or lost, goes out again until the box has seen it.
   static_cast<void>( parts_.broker.put( std::string( desiredKeys ) + desired.box, textOf( desired ) ) );
}

void Owner::take( Broker::Letter const & letter ) {
   std::string_view const key = letter.key;
   if( key.starts_with( statusKeys ) ) {
      takeStatus( letter.key.substr( statusKeys.size() ), letter.text );
   } else if( key.starts_with( desiredKeys ) ) {
      takeDesired( letter.key.substr( desiredKeys.size() ), letter.text );
   } else if( key == ownerKey ) {
      rivals_.heard( letter.text );
   }
}

void Owner::takeStatus( std::string const & box, std::string const & text ) {
   if( !dispatcher_.inventory().box( box ) ) return complain( box, "is in no inventory, and what it says is dropped" );
   try {
      Status const status = statusFrom( text );
      // Which key somebody writes to is the broker's to watch, and it knows who he is.
      if( status.box != box )
         return complain( box, "says that it is " + status.box + ": a forged status, which is dropped" );
      static_cast<void>( dispatcher_.statusIs( status, now_ ) );
   } catch( BadDocument const & fault ) {
      complain( box, std::string( "has sent what cannot be read: " ) + fault.what() );
   }
}

void Owner::takeDesired( std::string const & box, std::string const & text ) {
   try {
      Desired const desired = desiredFrom( text );
      if( desired.box != box ) return complain( box, "has orders in the broker that are for " + desired.box );
      dispatcher_.desiredFound( desired );
   } catch( BadDocument const & fault ) {
      complain( box, std::string( "has orders in the broker that cannot be read: " ) + fault.what() );
   }
}

void Owner::complain( std::string const & box, std::string const & what ) {
   // Of names that are made up there may be any number.
   std::string const key = dispatcher_.inventory().box( box ) ? box : "";
   auto const [at, first] = complainedAt_.try_emplace( key, now_ );
   if( !first && now_ < at->second + sayAgainSeconds ) return;
   at->second = now_;
   parts_.log( Severity::warning, "box " + box + " " + what );
}

Surroundings Owner::surroundings() const {
   Surroundings now{ .reachable = connected_ && found_ && rivals_.listened() };
   // Also where it is connected: what the broker refuses shows nowhere else.
   now.broker = parts_.broker.trouble();
   if( connected_ && !now.reachable && now.broker.empty() )
      now.broker = "it is asked what was ordered before, and whether there is another owner";
   now.trouble = memoryTrouble_;
   if( now.trouble.empty() ) now.trouble = clockTrouble_;
   return now;
}

std::string const & Owner::line() {
   if( !line_.empty() && now_ < lineAt_ + lineSeconds ) return line_;
   lineAt_ = now_;
   Survey const survey = surveyOf( dispatcher_, now_ );
   line_ = std::to_string( survey.units ) + " units, " + std::to_string( survey.units - survey.inService ) + " out";
   for( auto const & [id, plan] : dispatcher_.books().plans() ) {
      if( !plan.over() ) line_ += "; " + id + " " + std::string( nameOf( plan.state ) );
   }
   Surroundings const now = surroundings();
   for( std::string const & what : { dispatcher_.doubt(), now.trouble, now.broker } ) {
      if( !what.empty() ) line_.insert( 0, what + "; " );
   }
   return line_;
}

}  // namespace Fleet
