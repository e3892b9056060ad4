#include "views/WindowView.h"

#include <algorithm>
#include <map>

#include "kel/ActivityLoop.h"

namespace Service {

namespace {

using Evidence::Window;
using Evidence::WindowIntf;

// In records 0 and the empty text stand for what has not happened or is not known.
template<class T>
Maybe<T> unlessNone( T const & value ) {
   return value == T{} ? Maybe<T>() : Maybe<T>( value );
}

// An enumerator without a name would be a record that a later service has written.
template<class E>
Text word( E e ) {
   char const * const name = enumName( e );
   return name ? Text( name ) : Text( std::to_string( static_cast<unsigned>( e ) ) );
}

// The entries by key: records keep them in the order in which they came, which the store may change.
template<class Key, class Element, class Walk>
std::map<Key, Element> ordered( Walk walk ) {
   std::map<Key, Element> entries;
   for( auto [key, element] : walk ) entries.emplace( key, element );
   return entries;
}

WindowStageAnswer stageAnswer( uint32_t number, Evidence::StageRun const & run ) {
   return { .number = number,
            .stage = run.stage,
            .operation = word( run.op ),
            .began = run.began,
            .ended = unlessNone( run.ended ),
            .deadlinePassed = unlessNone( run.deadlinePassed ),
            .result = word( run.result ),
            .why = unlessNone( run.why ) };
}

Maybe<Evidence::ProfileInForce> profileAnswer( Evidence::ProfileInForce const & profile ) {
   return profile == Evidence::ProfileInForce{} ? std::nullopt : Maybe<Evidence::ProfileInForce>( profile );
}

WindowInterfaceAnswer interfaceAnswer( WindowIntf const & intf ) {
   WindowInterfaceAnswer answer{ .interface = Text( intf.intfId().name() ),
                                 .leftOut = intf.leftOut(),
                                 .seen = intf.seen(),
                                 .profile = profileAnswer( intf.profile() ),
                                 .breaks = intf.breaks(),
                                 .spikes = intf.spikes(),
                                 .totalEvents = intf.totalEvents() };
   for( auto const & [number, event] : ordered<uint32_t, Evidence::IntfEvent>( intf.eventIteratorConst() ) ) {
      answer.events.push_back( event );
   }
   for( auto const & [number, verdict] : ordered<uint32_t, Evidence::Verdict>( intf.verdictAtIteratorConst() ) ) {
      answer.verdicts.push_back( { .stageNumber = number, .verdict = word( verdict ) } );
   }
   answer.rates = intf.rates();
   return answer;
}

WindowLineAnswer lineAnswer( Window const & window ) {
   WindowLineAnswer line{ .unit = window.unit(),
                          .generation = window.generation(),
                          .requestedBy = unlessNone( window.requestedBy() ),
                          .wallClockOffset = unlessNone( window.wallClockOffset() ),
                          .requested = window.requested(),
                          .entered = unlessNone( window.entered() ),
                          .exitRequested = unlessNone( window.exitRequested() ),
                          .ended = unlessNone( window.ended() ),
                          .outcome = word( window.outcome() ),
                          .interfaces = static_cast<uint32_t>( window.intfs() ) };
   using Intf = Kel::Ptr<WindowIntf const>;
   for( auto const & [id, intf] : ordered<Lumo::IntfId, Intf>( window.intfIteratorConst() ) ) {
      line.breaks += intf->breaks();
      line.spikes += intf->spikes();
      if( intf->leftOut() ) line.without.push_back( Text( id.name() ) );
   }
   return line;
}

}  // namespace

WindowAnswer windowAnswer( Window const & window, double asOf ) {
   WindowAnswer answer{ .unit = window.unit(),
                        .generation = window.generation(),
                        .exitGeneration = unlessNone( window.exitGeneration() ),
                        .requestedBy = unlessNone( window.requestedBy() ),
                        .exitRequestedBy = unlessNone( window.exitRequestedBy() ),
                        .wallClockOffset = unlessNone( window.wallClockOffset() ),
                        .asOf = asOf,
                        .requested = window.requested(),
                        .entered = unlessNone( window.entered() ),
                        .exitRequested = unlessNone( window.exitRequested() ),
                        .ended = unlessNone( window.ended() ),
                        .outcome = word( window.outcome() ) };
   for( auto const & [number, run] : ordered<uint32_t, Evidence::StageRun>( window.stageRunIteratorConst() ) ) {
      answer.stages.push_back( stageAnswer( number, run ) );
   }
   using Intf = Kel::Ptr<WindowIntf const>;
   for( auto const & [id, intf] : ordered<Lumo::IntfId, Intf>( window.intfIteratorConst() ) ) {
      answer.interfaces.push_back( interfaceAnswer( *intf ) );
   }
   return answer;
}

WindowsAnswer WindowView::windows() const {
   WindowsAnswer answer;
   for( auto [name, window] : windows_->windowIteratorConst() ) answer.windows.push_back( lineAnswer( *window ) );
   // Two requests of one moment stand in the order of their units' names, so that the same records give the same
   // answer.
   std::sort( answer.windows.begin(), answer.windows.end(), []( auto const & a, auto const & b ) {
      if( a.requested != b.requested ) return a.requested > b.requested;
      if( a.unit != b.unit ) return a.unit < b.unit;
      return a.generation > b.generation;
   } );
   return answer;
}

std::optional<WindowAnswer> WindowView::window( std::string_view unit, uint32_t generation ) const {
   auto const window = windows_->window( Kel::Name( std::string( unit ) + "#" + std::to_string( generation ) ) );
   if( !window ) return std::nullopt;
   return windowAnswer( *window, Kel::now() );
}

}  // namespace Service
