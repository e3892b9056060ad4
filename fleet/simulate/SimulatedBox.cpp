#include "simulate/SimulatedBox.h"

#include "keys/Subjects.h"

namespace Fleet {

namespace {

// A letter can be lost, and nobody tells.
constexpr double readAgainSeconds = 60;

}  // namespace

void SimulatedBox::Kept::commit( Changes const & changes ) {
   for( auto const & [key, row] : changes ) {
      if( row ) {
         kept[key] = *row;
      } else {
         kept.erase( key );
      }
   }
}

SimulatedBox::SimulatedBox( Plan plan, LightNetwork const & network, double now )
   : plan_( std::move( plan ) ), network_( network ), maintd_( plan_.units, network.random ) {
   live( now );
}

void SimulatedBox::live( double now ) {
   agent_.emplace( plan_.name, memory_, maintd_, plan_.heartbeatSeconds, now );
   connection_ = std::make_unique<LightConnection>( network_, plan_.name, plan_.key ? &*plan_.key : nullptr );
   connects_ = 0;
}

void SimulatedBox::turn( double now, Counts & counts ) {
   if( !agent_ ) return;
   // Lost and made anew since the last turn, it is a new one all the same.
   bool const anew = std::exchange( connects_, connection_->connects() ) != connection_->connects();
   if( anew ) agent_->connectedIs( false );
   agent_->connectedIs( connected() );
   if( anew || now - readAt_ >= readAgainSeconds ) {
      connection_->read( desiredKey( plan_.name ) );
      readAt_ = now;
   }
   take( counts );
   auto const status = agent_->turn( now );
   if( status && connection_->put( statusKey( plan_.name ), textOf( *status ) ) ) ++counts.statuses;
}

void SimulatedBox::take( Counts & counts ) {
   for( auto const & letter : connection_->arrived() ) {
      if( letter.key != desiredKey( plan_.name ) ) continue;
      try {
         agent_->desiredIs( desiredFrom( letter.text ) );
         ++counts.orders;
      } catch( BadDocument const & ) {
         // Of somebody else's making; what is wanted comes again.
      }
   }
}

// --- Faults

bool SimulatedBox::has( Fault fault ) const {
   auto const its = faults_.find( fault );
   return its != faults_.end() && its->second > 0;
}

bool SimulatedBox::faulty() const {
   for( auto const & [fault, times] : faults_ ) {
      if( times > 0 ) return true;
   }
   return false;
}

void SimulatedBox::faultBegins( Fault fault ) {
   ++faults_[fault];
   handleFaults( 0 );
}

void SimulatedBox::faultEnds( Fault fault, double now ) {
   --faults_[fault];
   handleFaults( now );
}

void SimulatedBox::handleFaults( double now ) {
   maintd_.faultsAre( { .off = has( Fault::maintdOff ), .trafficStays = has( Fault::trafficStays ) } );
   if( has( Fault::dies ) ) {
      agent_.reset();
      connection_.reset();
      return;
   }
   if( !agent_ ) live( now );
   connection_->cutOffIs( has( Fault::silent ) );
}

}  // namespace Fleet
