#include "brim/TimerWheel.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace Brim {

namespace {

constexpr uint32_t maxSpanTicks = 1u << 20;
constexpr double earlyTicks = 1.0 / 8;  // how far before its time a timer may fire
constexpr unsigned levelBits = 6;       // an upper level has one word of slots
constexpr std::size_t wordBits = 64;
constexpr unsigned tickBits = 62;
constexpr uint64_t lastTick = ( uint64_t{ 1 } << tickBits ) - 1;  // stands for all that is later still
constexpr uint64_t noTick = ~uint64_t{ 0 };
constexpr std::size_t noSlot = ~std::size_t{ 0 };

// Ticks that may be fractional, negative or beyond any number, as a number of ticks.
uint64_t wholeTicks( double ticks ) {
   if( !( ticks > 0 ) ) return 0;
   return ticks < static_cast<double>( lastTick ) ? static_cast<uint64_t>( ticks ) : lastTick;
}

}  // namespace

// The time in which handlers of timers run: the clock reactor is set once, at its end, however it ends.
class TimerWheel::Delivery {
 public:
   explicit Delivery( TimerWheel & wheel ) : wheel_( wheel ) { wheel.delivering_ = true; }
   Delivery( Delivery const & ) = delete;
   Delivery & operator=( Delivery const & ) = delete;
   ~Delivery() {
      wheel_.delivering_ = false;
      wheel_.sleep();
   }

 private:
   TimerWheel & wheel_;
};

void TimerWheel::Link::insertBefore( Link & other ) {
   prev = other.prev;
   next = &other;
   prev->next = next->prev = this;
}

void TimerWheel::Link::unlink() {
   prev->next = next;
   next->prev = prev;
   prev = next = this;
}

void TimerWheel::Link::takeAll( Link & other ) {
   insertBefore( other );
   other.unlink();
}

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
     spanBits_( static_cast<unsigned>( std::bit_width( initialMaxTicks - 1 ) ) ),
     upperSlots_( std::max( wordBits, std::size_t{ 1 } << spanBits_ ) ),
     wakeTick_( noTick ),
     slots_( upperSlots_ + ( tickBits - spanBits_ + levelBits - 1 ) / levelBits * wordBits ),
     occupied_( slots_.size() / wordBits ),
     clock_( clock, *this ) {}

TimerWheel::~TimerWheel() {
   Kel::NotifieeList::Delivery all( attached_ );
   while( auto * const timer = static_cast<NotifieeConst *>( all.next() ) ) {
      timer->wheel_ = nullptr;
      timer->timeMin_ = Kel::never;
   }
}

double TimerWheel::tickTime( uint64_t tick ) const {
   return creationTime_ + static_cast<double>( tick ) * tickSeconds_;
}

// The division may be off by a rounding error; what decides is tickTime(), here and below.
uint64_t TimerWheel::tickAt( double t ) const {
   uint64_t const tick = wholeTicks( ( t - creationTime_ ) / tickSeconds_ );
   if( tickTime( tick + 1 ) <= t ) return tick + 1;
   return tick > 0 && tickTime( tick ) > t ? tick - 1 : tick;
}

uint64_t TimerWheel::tickFor( double t ) const {
   double const early = earlyTicks * tickSeconds_;
   uint64_t const tick = wholeTicks( ( t - early - creationTime_ ) / tickSeconds_ + 1 );
   if( tick > 0 && tickTime( tick - 1 ) + early >= t ) return tick - 1;
   return tick < lastTick && tickTime( tick ) + early < t ? tick + 1 : tick;
}

void TimerWheel::arm( NotifieeConst & timer ) {
   uint64_t const passed = delivering_ ? current_ : std::max( current_, tickAt( Kel::now() ) );
   // Ticks at which the wheel slept had no timers, so going past them delivers them.
   if( wakeTick_ > passed ) current_ = passed;
   timer.tick_ = std::max( tickFor( timer.timeMin_ ), passed + 1 );
   ++armed_;
   uint64_t const due = begin( file( timer ) );
   if( !delivering_ && due < wakeTick_ ) sleepUntil( due );
}

void TimerWheel::disarm( NotifieeConst & timer ) {
   unfile( timer );
   timer.timeMin_ = Kel::never;
   --armed_;
   if( !delivering_ && armed_ == 0 ) sleepUntil( noTick );
}

void TimerWheel::handleClock() {
   Kel::Ptr<TimerWheel> const alive( this );
   uint64_t const target = std::max( wakeTick_, tickAt( Kel::now() ) );
   Delivery const delivery( *this );
   for( std::size_t slot = nextSlot(); slot != noSlot && begin( slot ) <= target; slot = nextSlot() ) {
      current_ = begin( slot );
      if( slot < upperSlots_ ) {
         fire( slot );
      } else {
         refile( slot );
      }
   }
   current_ = target;
}

unsigned TimerWheel::shift( std::size_t slot ) const {
   if( slot < upperSlots_ ) return 0;
   return spanBits_ + levelBits * static_cast<unsigned>( ( slot - upperSlots_ ) / wordBits );
}

// A timer is in the lowest level whose present block holds its tick. So all timers of one tick are in one slot at any time,
// and a slot that moves down as a whole keeps their order.
std::size_t TimerWheel::slotOf( uint64_t tick ) const {
   unsigned const blockBits = static_cast<unsigned>( std::bit_width( tick ^ current_ ) );
   if( blockBits <= spanBits_ ) return tick & ( ( uint64_t{ 1 } << spanBits_ ) - 1 );
   unsigned const level = ( blockBits - spanBits_ - 1 ) / levelBits;
   return upperSlots_ + level * wordBits + ( tick >> ( spanBits_ + levelBits * level ) ) % wordBits;
}

// The occupied slot that begins first. Lower levels are within the present block of the upper ones, so they come first;
// in each level everything at or before the present position has moved down or fired.
std::size_t TimerWheel::nextSlot() const {
   for( std::size_t word = slotOf( current_ ) / wordBits; word < occupied_.size(); ++word ) {
      if( occupied_[word] ) return word * wordBits + static_cast<unsigned>( std::countr_zero( occupied_[word] ) );
   }
   return noSlot;
}

uint64_t TimerWheel::begin( std::size_t slot ) const {
   unsigned const bits = shift( slot );
   if( slot < upperSlots_ ) return ( current_ >> spanBits_ << spanBits_ ) + slot;
   return ( current_ >> bits >> levelBits << levelBits << bits ) + ( uint64_t{ slot % wordBits } << bits );
}

std::size_t TimerWheel::file( NotifieeConst & timer ) {
   std::size_t const slot = slotOf( timer.tick_ );
   timer.insertBefore( slots_[slot] );
   occupied_[slot / wordBits] |= uint64_t{ 1 } << slot % wordBits;
   return slot;
}

void TimerWheel::unfile( NotifieeConst & timer ) {
   Link const * const neighbour = timer.next;
   timer.unlink();
   if( !neighbour->alone() ) return;
   auto const slot = static_cast<std::size_t>( neighbour - slots_.data() );
   occupied_[slot / wordBits] &= ~( uint64_t{ 1 } << slot % wordBits );
}

void TimerWheel::refile( std::size_t slot ) {
   Link ring;
   ring.takeAll( slots_[slot] );
   occupied_[slot / wordBits] &= ~( uint64_t{ 1 } << slot % wordBits );
   while( !ring.alone() ) {
      auto & timer = static_cast<NotifieeConst &>( *ring.next );
      timer.unlink();
      file( timer );
   }
}

// Handlers may set, cancel and destroy any timer. Nothing that they set comes into this slot, for its tick has begun.
void TimerWheel::fire( std::size_t slot ) {
   Link const & ring = slots_[slot];
   while( !ring.alone() ) {
      auto & timer = static_cast<NotifieeConst &>( *ring.next );
      disarm( timer );
      if( timer.deliverable() ) timer.onTime();
   }
}

void TimerWheel::sleep() {
   std::size_t const slot = nextSlot();
   sleepUntil( slot == noSlot ? noTick : begin( slot ) );
}

void TimerWheel::sleepUntil( uint64_t tick ) {
   wakeTick_ = tick;
   clock_.timeMinIs( tick == noTick ? Kel::never : tickTime( tick ) );
}

TimerWheel::NotifieeConst::NotifieeConst( Kel::Ptr<TimerWheel> const & wheel ) : wheel_( wheel.get() ) {
   wheel_->attached_.append( *this );
}

TimerWheel::NotifieeConst::NotifieeConst( Kel::Ptr<TimerWheel> const & wheel, Kel::PtrInterface const & owner )
   : NotifieeBase( owner ), wheel_( wheel.get() ) {
   wheel_->attached_.append( *this );
}

TimerWheel::NotifieeConst::~NotifieeConst() {
   if( !wheel_ ) return;
   timeMinIs( Kel::never );
   wheel_->attached_.remove( *this );
}

void TimerWheel::NotifieeConst::timeMinIs( double t ) {
   KEL_ASSERT( !std::isnan( t ) );
   if( !wheel_ ) return;
   if( timeMin_ != Kel::never ) wheel_->disarm( *this );
   if( t == Kel::never ) return;
   timeMin_ = t;
   wheel_->arm( *this );
}

}  // namespace Brim
