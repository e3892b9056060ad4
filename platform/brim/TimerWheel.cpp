#include "brim/TimerWheel.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

namespace Brim {

namespace {

constexpr uint32_t maxSpanTicks = 1u << 20;  // 16 MiB of slots
constexpr double rounding = 1e-6;            // s, more than a clock of 136 years (2^32 s) rounds its times by
constexpr double mostLentTicks = 1.0 / 8;    // a loop that is later than this costs a period one tick
constexpr unsigned levelBits = 6;            // an upper level has one word of slots
constexpr std::size_t wordBits = 64;
constexpr unsigned tickBits = 62;  // one fewer than a positive int64_t has: a tick after the last one still fits
constexpr uint64_t lastTick = ( uint64_t{ 1 } << tickBits ) - 1;  // stands for all that is later still
constexpr uint64_t noTick = ~uint64_t{ 0 };
constexpr std::size_t noSlot = ~std::size_t{ 0 };
constexpr std::size_t fetchAhead = 6;  // timers: what one takes to come from memory, others take to fire

// Ticks that may be fractional, negative or beyond any number, as a number of ticks. Converted by way of a signed
// number, as everywhere in this file: that is one instruction, an unsigned number takes several and a branch.
uint64_t wholeTicks( double ticks ) {
   if( !( ticks > 0 ) ) return 0;
   return ticks < static_cast<double>( lastTick ) ? static_cast<uint64_t>( static_cast<int64_t>( ticks ) ) : lastTick;
}

// Likewise, with a part of a tick counted as a whole one.
uint64_t startedTicks( double ticks ) {
   uint64_t const whole = wholeTicks( ticks );
   bool const more = whole < lastTick && static_cast<double>( static_cast<int64_t>( whole ) ) < ticks;
   return more ? whole + 1 : whole;
}

}  // namespace

// The time in which handlers of timers run. What they set and cancel does not touch the clock reactor: it is set once,
// at the end of this, also when a handler throws. What that kept from firing then fires in the next turn.
class TimerWheel::Delivery {
 public:
   explicit Delivery( TimerWheel & wheel ) : wheel_( wheel ) { wheel.delivering_ = true; }
   Delivery( Delivery const & ) = delete;
   Delivery & operator=( Delivery const & ) = delete;
   ~Delivery() {
      wheel_.delivering_ = false;
      wheel_.early_ = rounding;
      wheel_.tidy();
      wheel_.sleep();
   }

 private:
   TimerWheel & wheel_;
};

Kel::Ptr<TimerWheel> TimerWheel::TimerWheelIs( Kel::Ptr<Kel::ActivityConfig> const & activityConfig,
                                               Kel::Ptr<Kel::Clock> const & clock, uint32_t tickMsecs,
                                               uint32_t initialMaxTicks, bool /*preserveOrder*/,
                                               uint32_t /*defaultBucketSize*/ ) {
   KEL_ASSERT( !activityConfig || activityConfig.get() == &Kel::activityManager().config() );
   KEL_ASSERT( clock == Kel::activityManager().config().clock() );
   KEL_ASSERT( tickMsecs > 0 );
   KEL_ASSERT( initialMaxTicks > 0 && initialMaxTicks <= maxSpanTicks );
   return new TimerWheel( clock, tickMsecs / 1000.0, initialMaxTicks );
}

TimerWheel::TimerWheel( Kel::Ptr<Kel::Clock> const & clock, double tickSeconds, uint32_t initialMaxTicks )
   : creationTime_( Kel::now() ),
     tickSeconds_( tickSeconds ),
     ticksPerSecond_( 1 / tickSeconds ),
     spanBits_( static_cast<unsigned>( std::bit_width( initialMaxTicks - 1 ) ) ),
     // At least a word: each word of `occupied_` belongs to one level.
     upperSlots_( std::max( wordBits, std::size_t{ 1 } << spanBits_ ) ),
     early_( rounding ),
     wakeTick_( noTick ),
     // As many upper levels as it takes until the last one has the last tick.
     slots_( upperSlots_ + ( tickBits - spanBits_ + levelBits - 1 ) / levelBits * wordBits ),
     occupied_( slots_.size() / wordBits ),
     clock_( clock, *this ) {}

// By multiplication: adding up ticks would add up their rounding errors.
double TimerWheel::tickTime( uint64_t tick ) const {
   return creationTime_ + static_cast<double>( static_cast<int64_t>( tick ) ) * tickSeconds_;
}

double TimerWheel::lateness( uint64_t tick ) const {
   return std::clamp( Kel::now() - tickTime( tick ), 0.0, mostLentTicks * tickSeconds_ );
}

// The product may be off by a rounding error. What decides is tickTime(), by which the clock reactor is set.
uint64_t TimerWheel::tickAt( double t ) const {
   uint64_t const tick = wholeTicks( ( t - creationTime_ ) * ticksPerSecond_ );
   if( tickTime( tick + 1 ) <= t ) return tick + 1;
   return tick > 0 && tickTime( tick ) > t ? tick - 1 : tick;
}

// Here the product's error does not matter: `early_` is greater.
inline uint64_t TimerWheel::tickFor( double t ) const {
   return startedTicks( ( t - creationTime_ - early_ ) * ticksPerSecond_ );
}

// A timer is in the lowest level whose present block holds its tick. So all timers of one tick are in the same slot at
// any time, and a slot that moves down as a whole keeps their order.
inline std::size_t TimerWheel::slotOf( uint64_t tick ) const {
   uint64_t const apart = tick ^ current_;
   if( apart >> spanBits_ == 0 ) [[likely]]
      return tick & ( ( uint64_t{ 1 } << spanBits_ ) - 1 );
   unsigned const level = ( static_cast<unsigned>( std::bit_width( apart ) ) - spanBits_ - 1 ) / levelBits;
   return upperSlots_ + level * wordBits + ( tick >> ( spanBits_ + levelBits * level ) ) % wordBits;
}

inline std::size_t TimerWheel::file( NotifieeConst & timer ) {
   std::size_t const number = slotOf( timer.tick_ );
   Slot & slot = slots_[number];
   if( !slot.last || slot.last->used == Chunk::size ) [[unlikely]] {
      Chunk & chunk = newChunk();
      ( slot.last ? slot.last->next : slot.first ) = &chunk;
      slot.last = &chunk;
      // Only here: a slot that has a chunk is marked already.
      occupied_[number / wordBits] |= uint64_t{ 1 } << number % wordBits;
   }
   timer.place_ = &slot.last->timers[slot.last->used++];
   *timer.place_ = &timer;
   ++places_;
   return number;
}

// Its place stays, empty: closing the gap would cost a look at every timer behind it.
inline void TimerWheel::release( NotifieeConst & timer ) {
   *timer.place_ = nullptr;
   timer.timeMin_ = Kel::never;
   --armed_;
}

inline void TimerWheel::fetch( Chunk const & chunk, std::size_t i ) {
   if( i < chunk.used ) __builtin_prefetch( chunk.timers[i] );
}

inline void TimerWheel::arm( NotifieeConst & timer ) {
   // A handler counts from its own tick, also when others are overdue behind it; anybody else from the time of the
   // turn.
   uint64_t const passed = delivering_ ? current_ : std::max( current_, tickAt( Kel::now() ) );
   // Ticks at which the wheel slept had no timers, so going past them delivers them. Not past one that it is to wake
   // for: that is still to be delivered, when the loop comes to it.
   if( wakeTick_ > passed ) current_ = passed;
   timer.tick_ = std::max( tickFor( timer.timeMin_ ), passed + 1 );
   ++armed_;
   std::size_t const slot = file( timer );
   if( delivering_ ) [[likely]]
      return;
   if( uint64_t const due = begin( slot ); due < wakeTick_ ) sleepUntil( due );
}

void TimerWheel::disarm( NotifieeConst & timer ) {
   release( timer );
   // No chunk may be recycled while it is being walked; the delivery tidies up at its end.
   if( delivering_ ) return;
   tidy();
   // Otherwise the clock stays set: to wake once for nothing costs less than to search the next slot at each
   // cancelling.
   if( armed_ == 0 ) sleepUntil( noTick );
}

// Takes the places of cancelled timers out of all slots once there are twice as many as timers. So a place costs O(1)
// to remove, and a timer that is cancelled and set for ever takes no more memory. The chunk beyond that keeps a wheel
// of few timers from doing this at each cancelling; a wheel of none frees all places.
void TimerWheel::tidy() {
   if( places_ - armed_ <= 2 * armed_ + ( armed_ > 0 ? Chunk::size : 0 ) ) [[likely]]
      return;
   for( std::size_t word = 0; word < occupied_.size(); ++word ) {
      for( uint64_t bits = occupied_[word]; bits; bits &= bits - 1 ) {
         refile( word * wordBits + static_cast<unsigned>( std::countr_zero( bits ) ) );
      }
   }
}

void TimerWheel::handleClock() {
   // At least the tick that it was set for, whatever rounding makes of the time.
   uint64_t const target = std::max( wakeTick_, tickAt( Kel::now() ) );
   Delivery const delivery( *this );
   // Searched anew after each slot: handlers set timers, also for ticks that are overdue with it.
   for( std::size_t slot = nextSlot(); slot != noSlot && begin( slot ) <= target; slot = nextSlot() ) {
      current_ = begin( slot );  // first: where a timer is filed depends on it
      if( slot < upperSlots_ ) {
         early_ = rounding + lateness( current_ );
         fire( slot );
      } else {
         refile( slot );
      }
   }
   current_ = target;  // ticks behind the last slot had no timers
}

unsigned TimerWheel::shift( std::size_t slot ) const {
   if( slot < upperSlots_ ) return 0;
   return spanBits_ + levelBits * static_cast<unsigned>( ( slot - upperSlots_ ) / wordBits );
}

// The occupied slot that begins first. Lower levels lie within the present block of the upper ones, so they come first.
// In each level everything at or before the present position has moved down or fired, so none is for a later round.
std::size_t TimerWheel::nextSlot() const {
   for( std::size_t word = slotOf( current_ ) / wordBits; word < occupied_.size(); ++word ) {
      if( occupied_[word] ) return word * wordBits + static_cast<unsigned>( std::countr_zero( occupied_[word] ) );
   }
   return noSlot;
}

uint64_t TimerWheel::begin( std::size_t slot ) const {
   unsigned const bits = shift( slot );
   if( slot < upperSlots_ ) return ( current_ >> spanBits_ << spanBits_ ) + slot;
   // In two shifts: in the highest level their sum may be the width of the word or more.
   return ( current_ >> bits >> levelBits << levelBits << bits ) + ( uint64_t{ slot % wordBits } << bits );
}

// Files the timers of a slot anew, in their order: into lower levels if the slot has begun, else into itself, without
// gaps.
void TimerWheel::refile( std::size_t number ) {
   Chunk * chunk = slots_[number].first;
   clear( number );  // first: timers may be filed here again
   while( chunk ) {
      for( std::size_t i = 0; i < chunk->used; ++i ) {
         fetch( *chunk, i + fetchAhead );
         if( chunk->timers[i] ) file( *chunk->timers[i] );
      }
      chunk = recycled( *chunk );
   }
}

// Handlers may set, cancel and destroy any timer. Nothing that they set comes into this slot, for its tick has begun.
// To fetch an empty place is to fetch null, which does nothing.
void TimerWheel::fire( std::size_t number ) {
   Slot & slot = slots_[number];
   while( Chunk * const chunk = slot.first ) {
      for( std::size_t i = 0; i < chunk->used; ++i ) {
         fetch( *chunk, i + fetchAhead );
         NotifieeConst * const timer = chunk->timers[i];
         if( !timer ) continue;
         release( *timer );  // not set while its handler runs, which may set or destroy it
         if( timer->deliverable() ) timer->onTime();
      }
      slot.first = recycled( *chunk );  // not before: whoever cancels a timer of it writes to its place
   }
   clear( number );
}

void TimerWheel::clear( std::size_t number ) {
   slots_[number] = {};
   occupied_[number / wordBits] &= ~( uint64_t{ 1 } << number % wordBits );
}

TimerWheel::Chunk & TimerWheel::newChunk() {
   Chunk & chunk = freeChunks_ ? *freeChunks_ : chunks_.emplace_back();
   if( freeChunks_ ) freeChunks_ = chunk.next;
   chunk.next = nullptr;
   chunk.used = 0;
   return chunk;
}

TimerWheel::Chunk * TimerWheel::recycled( Chunk & chunk ) {
   places_ -= chunk.used;
   return std::exchange( chunk.next, std::exchange( freeChunks_, &chunk ) );
}

void TimerWheel::sleep() {
   std::size_t const slot = nextSlot();
   sleepUntil( slot == noSlot ? noTick : begin( slot ) );
}

void TimerWheel::sleepUntil( uint64_t tick ) {
   wakeTick_ = tick;
   clock_.timeMinIs( tick == noTick ? Kel::never : tickTime( tick ) );
}

TimerWheel::NotifieeConst::~NotifieeConst() { timeMinIs( Kel::never ); }

void TimerWheel::NotifieeConst::timeMinIs( double t ) {
   KEL_ASSERT( !std::isnan( t ) );
   // Also when the tick stays the same: its place is behind the others now.
   if( timeMin_ != Kel::never ) wheel_->disarm( *this );
   if( t == Kel::never ) return;
   timeMin_ = t;
   wheel_->arm( *this );
}

}  // namespace Brim
