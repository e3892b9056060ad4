#include "report/WindowStory.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "kel/Optional.h"
#include "kel/String8.h"

namespace Report {

namespace {

using Kel::Value;

Value const & member( Value const & object, char const * name ) {
   auto const * const members = object.as<Value::Object>();
   if( !members ) Kel::wrongType( "an object", object );
   for( auto const & [key, value] : *members ) {
      if( key == name ) return value;
   }
   throw Kel::AttributeError( std::string( "the answer about a window has no \"" ) + name + "\"" );
}

template<class T>
void take( T & into, Value const & object, char const * name ) {
   into = Kel::ValueTraits<T>::fromValue( member( object, name ) );
}
// No picture has a place for a time or a rate that is not finite, and JSON cannot say it.
void take( double & into, Value const & object, char const * name ) {
   into = Kel::ValueTraits<double>::fromValue( member( object, name ) );
   if( !std::isfinite( into ) ) throw Kel::AttributeError( std::string( "\"" ) + name + "\" is no finite number" );
}
void take( std::optional<double> & into, Value const & object, char const * name ) {
   if( !member( object, name ).isNull() ) take( into.emplace(), object, name );
}
void take( std::string & into, Value const & object, char const * name ) {
   into = Kel::ValueTraits<Kel::String8>::fromValue( member( object, name ) ).str();
}
void take( std::optional<std::string> & into, Value const & object, char const * name ) {
   if( !member( object, name ).isNull() ) take( into.emplace(), object, name );
}

// Declared here because a list of them is taken before they are defined.
void read( StoryStage & stage, Value const & from );
void read( StoryEvent & event, Value const & from );
void read( StoryVerdict & verdict, Value const & from );
void read( StoryCell & cell, Value const & from );
void read( StoryIntf & intf, Value const & from );

template<class T>
void takeList( std::vector<T> & into, Value const & object, char const * name ) {
   Value const & found = member( object, name );
   auto const * const list = found.as<Value::List>();
   if( !list ) Kel::wrongType( "a list", found );
   into.reserve( list->size() );
   for( Value const & each : *list ) read( into.emplace_back(), each );
}

void read( StoryStage & stage, Value const & from ) {
   take( stage.number, from, "number" );
   take( stage.name, from, "stage" );
   take( stage.operation, from, "operation" );
   take( stage.began, from, "began" );
   take( stage.ended, from, "ended" );
   take( stage.deadlinePassed, from, "deadlinePassed" );
   take( stage.result, from, "result" );
   take( stage.why, from, "why" );
}

void read( StoryEvent & event, Value const & from ) {
   take( event.time, from, "time" );
   take( event.kind, from, "kind" );
   take( event.text, from, "text" );
}

void read( StoryVerdict & verdict, Value const & from ) {
   take( verdict.stageNumber, from, "stageNumber" );
   take( verdict.verdict, from, "verdict" );
}

void read( StoryCell & cell, Value const & from ) {
   take( cell.from, from, "from" );
   take( cell.to, from, "to" );
   take( cell.inLow, from, "inLow" );
   take( cell.inMean, from, "inMean" );
   take( cell.inHigh, from, "inHigh" );
   take( cell.outLow, from, "outLow" );
   take( cell.outMean, from, "outMean" );
   take( cell.outHigh, from, "outHigh" );
}

void read( StoryProfile & profile, Value const & from ) {
   take( profile.name, from, "profile" );
   take( profile.thresholdBitsRate, from, "thresholdBitsRate" );
   take( profile.sampleIntervalSeconds, from, "sampleIntervalSeconds" );
   take( profile.loadIntervalSeconds, from, "loadIntervalSeconds" );
   take( profile.shutdown, from, "shutdown" );
}

void read( StoryIntf & intf, Value const & from ) {
   take( intf.name, from, "interface" );
   take( intf.leftOut, from, "leftOut" );
   take( intf.seen, from, "seen" );
   Value const & profile = member( from, "profile" );
   if( !profile.isNull() ) read( intf.profile.emplace(), profile );
   take( intf.breaks, from, "breaks" );
   take( intf.spikes, from, "spikes" );
   take( intf.totalEvents, from, "totalEvents" );
   takeList( intf.events, from, "events" );
   takeList( intf.verdicts, from, "verdicts" );
   takeList( intf.cells, from, "rates" );
}

// Lower is worse.
int rank( StoryIntf const & intf ) {
   static constexpr std::array<std::string_view, 4> unsettled{ "loud", "missing", "unwatched", "waiting" };
   auto const last = intf.lastVerdict();
   auto const * const found = last ? std::find( unsettled.begin(), unsettled.end(), *last ) : unsettled.end();
   if( found != unsettled.end() ) return static_cast<int>( found - unsettled.begin() );
   if( intf.spikes > 0 ) return 4;
   if( intf.leftOut ) return 5;
   return intf.breaks > 0 ? 6 : 7;
}

}  // namespace

std::optional<std::string> StoryIntf::verdictAt( uint32_t stageNumber ) const {
   for( StoryVerdict const & at : verdicts ) {
      if( at.stageNumber == stageNumber ) return at.verdict;
   }
   return std::nullopt;
}

std::optional<std::string> StoryIntf::lastVerdict() const {
   if( verdicts.empty() ) return std::nullopt;
   return verdicts.back().verdict;
}

WindowStory::WindowStory( Value const & window ) {
   take( unit, window, "unit" );
   take( generation, window, "generation" );
   take( exitGeneration, window, "exitGeneration" );
   take( requestedBy, window, "requestedBy" );
   take( exitRequestedBy, window, "exitRequestedBy" );
   take( wallClockOffset, window, "wallClockOffset" );
   take( asOf, window, "asOf" );
   take( requested, window, "requested" );
   take( entered, window, "entered" );
   take( exitRequested, window, "exitRequested" );
   take( ended, window, "ended" );
   take( outcome, window, "outcome" );
   takeList( stages, window, "stages" );
   takeList( interfaces, window, "interfaces" );
}

StoryStage const * WindowStory::proof() const {
   StoryStage const * found = nullptr;
   for( StoryStage const & stage : stages ) {
      if( stage.name == "verify" && stage.operation == "enter" && stage.result == "done" && stage.ended ) {
         found = &stage;
      }
   }
   return found;
}

std::optional<double> WindowStory::proven() const {
   StoryStage const * const stage = proof();
   return stage ? stage->ended : std::nullopt;
}

StoryStage const * WindowStory::lastOfEntry() const {
   StoryStage const * found = nullptr;
   for( StoryStage const & stage : stages ) {
      if( stage.operation == "enter" && stage.ended ) found = &stage;
   }
   return found;
}

std::optional<StoryIntf::Peak> WindowStory::peakAfterProof( StoryIntf const & intf ) const {
   auto const since = proven();
   if( !since ) return std::nullopt;
   double const until = exitRequested.value_or( end() );
   std::optional<StoryIntf::Peak> within, across;
   for( StoryCell const & cell : intf.cells ) {
      if( cell.to <= *since || cell.from >= until ) continue;
      auto & peak = cell.from >= *since && cell.to <= until ? within : across;
      if( !peak ) peak.emplace();
      peak->inBits = std::max( peak->inBits, cell.inHigh );
      peak->outBits = std::max( peak->outBits, cell.outHigh );
   }
   if( !across ) return within;
   across->atMost = !within || across->inBits > within->inBits || across->outBits > within->outBits;
   if( within ) {
      across->inBits = std::max( across->inBits, within->inBits );
      across->outBits = std::max( across->outBits, within->outBits );
   }
   return across;
}

std::vector<std::string> WindowStory::leftOut() const {
   std::vector<std::string> names;
   for( StoryIntf const & intf : interfaces ) {
      if( intf.leftOut ) names.push_back( intf.name );
   }
   return names;
}

std::vector<StoryIntf const *> WindowStory::worstFirst() const {
   std::vector<StoryIntf const *> ordered;
   for( StoryIntf const & intf : interfaces ) ordered.push_back( &intf );
   std::stable_sort( ordered.begin(), ordered.end(), []( StoryIntf const * a, StoryIntf const * b ) {
      if( rank( *a ) != rank( *b ) ) return rank( *a ) < rank( *b );
      return a->spikes != b->spikes ? a->spikes > b->spikes : a->breaks > b->breaks;
   } );
   return ordered;
}

}  // namespace Report
