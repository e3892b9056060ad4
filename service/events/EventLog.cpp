#include "events/EventLog.h"

#include <algorithm>
#include <map>
#include <utility>

#include "kel/ActivityLoop.h"
#include "kel/Assert.h"
#include "kel/Json.h"

namespace Service {

namespace {

// What an event takes at most besides its text, which it has twice when its line has been made.
constexpr std::size_t overhead = 512;

std::size_t bytesOf( EventLog::Entry const & entry ) { return overhead + 2 * entry.text().view().size(); }

// Without the beginning of a character whose rest is cut off: in UTF-8 the others of its bytes are 10xxxxxx.
std::string cut( std::string const & text ) {
   if( text.size() <= EventLog::textMax ) return text;
   std::size_t end = EventLog::textMax;
   while( end > 0 && ( static_cast<unsigned char>( text[end] ) & 0xc0 ) == 0x80 ) --end;
   return text.substr( 0, end ) + " ...";
}

// The name of an enumerator as a text that all events share, as each that is made takes a hundred bytes.
template<class E>
Kel::String8 word( E value ) {
   static std::map<E, Kel::String8> words;
   Kel::String8 & kept = words[value];
   if( kept.empty() ) kept = enumName( value );
   return kept;
}

std::function<uint64_t()> countingFromOne() {
   return [last = uint64_t( 0 )]() mutable { return ++last; };
}

}  // namespace

Severity severityOf( Event const & event ) {
   for( auto const severity : { Severity::error, Severity::warning, Severity::notice } ) {
      if( event.severity.view() == enumName( severity ) ) return severity;
   }
   return Severity::info;
}

std::string someOf( std::vector<std::string> const & texts, char const * between ) {
   constexpr std::size_t shown = 10;
   std::string all;
   for( std::size_t i = 0; i < std::min( texts.size(), shown ); ++i ) all += ( i ? between : "" ) + texts[i];
   if( texts.size() <= shown ) return all;
   return all + between + "and " + std::to_string( texts.size() - shown ) + " more";
}

EventLog::Entry::Entry( Told const & what, Kel::String8 text, uint64_t seq, double time, double wallTime )
   : seq_( seq ),
     time_( time ),
     wallTime_( wallTime ),
     unit_( what.unit ),
     text_( std::move( text ) ),
     generation_( what.generation ),
     interface_( what.interface ),
     kind_( what.kind ),
     severity_( what.severity ) {}

Event EventLog::Entry::event() const {
   Event event;
   event.seq = seq_;
   event.time = time_;
   event.wallTime = wallTime_;
   event.kind = word( kind_ );
   event.severity = word( severity_ );
   if( !unit_.empty() ) event.unit = unit_;
   if( generation_ != 0 ) event.generation = generation_;
   if( !interface_.empty() ) event.interface = Kel::String8( interface_.name() );
   event.text = text_;
   return event;
}

std::string const & EventLog::Entry::line() const {
   if( !line_ ) line_ = std::make_unique<std::string const>( Kel::toJson( Kel::value( event() ) ) + "\n" );
   return *line_;
}

EventLog::Listener::Listener( EventLog & log, Act act )
   : log_( log ), act_( std::make_shared<Act const>( std::move( act ) ) ), since_( log.last() ) {
   log.listeners_.push_back( this );
}

EventLog::Listener::~Listener() {
   auto const found = std::ranges::find( log_.listeners_, this );
   if( log_.delivering_ ) {
      *found = nullptr;
   } else {
      log_.listeners_.erase( found );
   }
}

EventLog::EventLog( std::function<uint64_t()> nextNumber, std::function<double()> wallClockOffset )
   : nextNumber_( nextNumber ? std::move( nextNumber ) : countingFromOne() ),
     wallClockOffset_( std::move( wallClockOffset ) ),
     last_( nextNumber_() ),
     // Nothing was ever told before the first number of all: whoever asks from the very beginning misses nothing.
     forgotten_( last_ == 1 ? 0 : last_ ),
     delivered_( last_ ) {}

void EventLog::tell( Told const & what ) {
   uint64_t const seq = nextNumber_();
   KEL_ASSERT( seq > last_ );
   // Once a turn, so that what happens at one moment does so by both clocks.
   if( time_ != Kel::now() ) {
      time_ = Kel::now();
      wallTime_ = wallClockOffset_ ? time_ + wallClockOffset_() : time_;
   }
   keep( Entry( what, sharedText( what ), seq, time_, wallTime_ ) );
   deliver();
}

// Interfaces of a unit have the same to tell one after the other, others are told between them.
Kel::String8 EventLog::sharedText( Told const & what ) {
   Kel::String8 & latest = texts_[what.kind];
   std::string const text = cut( what.text );
   if( latest.view() != text ) latest = Kel::String8( text );
   return latest;
}

void EventLog::keep( Entry entry ) {
   last_ = entry.seq();
   bytes_ += bytesOf( entry );
   entries_.push_back( std::move( entry ) );
   // The latest stays, whatever it takes.
   while( entries_.size() > eventsMax || ( bytes_ > bytesMax && entries_.size() > 1 ) ) {
      forgotten_ = entries_.front().seq();
      bytes_ -= bytesOf( entries_.front() );
      entries_.pop_front();
   }
}

// Of an event that is told by a listener those hear, and in the same order as the others, when all have heard of the
// one before.
void EventLog::deliver() {
   if( delivering_ ) return;
   delivering_ = true;
   while( Entry const * const entry = next( delivered_ ) ) {
      delivered_ = entry->seq();
      deliver( entry->event() );
   }
   std::erase( listeners_, nullptr );
   delivering_ = false;
}

void EventLog::deliver( Event const & event ) {
   // Not by iterators: more may be added.
   for( std::size_t i = 0; i < listeners_.size(); ++i ) {
      if( !listeners_[i] || event.seq <= listeners_[i]->since_ ) continue;
      auto const act = listeners_[i]->act_;
      ( *act )( event );
   }
}

EventLog::Entry const * EventLog::next( uint64_t after ) const {
   auto const found = std::ranges::upper_bound( entries_, after, {}, &Entry::seq );
   return found == entries_.end() ? nullptr : &*found;
}

}  // namespace Service
