#include "feed/LinkWatch.h"

#include <utility>

#include "kel/ActivityLoop.h"

namespace Host {

LinkWatch::Pause::Pause( LinkWatch & owner )
   : Kel::Clock::NotifieeConst( Kel::activityLoop().clock() ), owner_( owner ) {}

LinkWatch::LinkWatch( LinkFeed & feed, Tell tell )
   : tell_( std::move( tell ) ), monitor_( feed, *this ), pause_( *this ) {}

void LinkWatch::onTrouble( std::string const & text, double pauseSeconds ) {
   pause_.timeMinIs( Kel::now() + pauseSeconds );
   int const seconds = static_cast<int>( pauseSeconds );
   if( tell_ ) tell_( text + "; they are asked for again in " + std::to_string( seconds ) + " s", true );
}

void LinkWatch::onRecovered() {
   if( tell_ ) tell_( "the links are known again", false );
}

}  // namespace Host
