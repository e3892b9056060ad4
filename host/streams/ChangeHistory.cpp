#include "streams/ChangeHistory.h"

#include <algorithm>
#include <charconv>

#include "kel/Assert.h"
#include "kel/Json.h"
#include "streams/ChangeReader.h"
#include "streams/LineText.h"

namespace Host {

using Dovra::StateComponents;

namespace {

// Reserved at a time. A box of a thousand interfaces that is watched whole uses so many in a few minutes.
constexpr uint64_t numbersBlock = 1'000'000;

}  // namespace

class ChangeHistory::Expiry final : public Kel::Clock::NotifieeConst {
 public:
   explicit Expiry( ChangeHistory & owner ) : NotifieeConst( Kel::activityLoop().clock() ), owner_( owner ) {}
   void onTimeMin() override { owner_.forgetIdle(); }

 private:
   ChangeHistory & owner_;
};

ChangeHistory::Snapshot::Snapshot( uint64_t n, std::string text, std::shared_ptr<std::size_t> all )
   : number( n ), line( std::move( text ) ), all_( std::move( all ) ) {
   *all_ += line.size();
}

ChangeHistory::Snapshot::~Snapshot() { *all_ -= line.size(); }

ChangeHistory::ChangeHistory( Dovra::EntityManager & database, Limits const & limits )
   : database_( database ),
     limits_( limits ),
     numbers_( database, "changes", numbersBlock ),
     forgotten_( numbers_.last() ),
     expiry_( std::make_unique<Expiry>( *this ) ) {}

ChangeHistory::~ChangeHistory() {
   for( auto const & [mounted, followed] : followed_ ) KEL_ASSERT( followed.readers == 0 );
}

ChangeHistory::Followed & ChangeHistory::follow( std::string const & mounted ) {
   Followed & followed = followed_[mounted];
   ++followed.readers;
   if( followed.watches ) return followed;
   // A number of its own: of the one before, nobody could say whether it was read before this was followed, with
   // changes in between that nobody saw.
   followed.since = addNothing();
   followed.watches = std::make_unique<Dovra::Watches>(
      database_, [this]( StateComponents const & path, Kel::Value const & value ) { add( path, value ); } );
   followed.watches->watch( { mounted } );
   return followed;
}

void ChangeHistory::leave( std::string const & mounted ) {
   Followed & followed = followed_.at( mounted );
   if( --followed.readers > 0 ) return;
   followed.idleSince = Kel::now();
   if( expiry_->timeMin() == Kel::never ) expiry_->timeMinIs( followed.idleSince + limits_.keptSeconds );
}

void ChangeHistory::forgetIdle() {
   double next = Kel::never;
   std::erase_if( followed_, [&]( auto const & entry ) {
      Followed const & followed = entry.second;
      if( followed.readers > 0 ) return false;
      double const end = followed.idleSince + limits_.keptSeconds;
      if( end <= Kel::now() ) return true;
      next = std::min( next, end );
      return false;
   } );
   expiry_->timeMinIs( next );
   if( !followed_.empty() ) return;
   blocks_.clear();
   blocks_.shrink_to_fit();
   bytes_ = 0;
   forgotten_ = numbers_.last();
   snapshots_.clear();
}

void ChangeHistory::add( StateComponents const & path, Kel::Value const & value ) {
   // First of all, as it may itself write a record that is followed.
   uint64_t const number = numbers_.next();
   Block & block = blockFor( number );
   std::size_t const before = block.bytes();
   Line line{ static_cast<uint32_t>( block.text.size() ), 0, 0 };
   LineText::appendHead( block.text, number, Kel::now() );
   block.text += "\"change\": [";
   line.pathBegin = static_cast<uint32_t>( block.text.size() );
   LineText::appendPath( block.text, path );
   line.pathSize = static_cast<uint32_t>( block.text.size() - line.pathBegin );
   LineText::appendEnd( block.text, value );
   block.lines.push_back( line );
   block.time = Kel::now();
   bytes_ += block.bytes() - before;
   // Each takes itself off when it is told.
   auto const waiting = block.path( line );
   for( std::size_t i = waiting_.size(); i-- > 0; ) {
      ChangeReader & reader = *waiting_[i];
      if( !reader.concerns( waiting ) ) continue;
      reader.place_ = number - 1;
      reader.wake();
   }
}

uint64_t ChangeHistory::addNothing() {
   uint64_t const number = numbers_.next();
   Block & block = blockFor( number );
   std::size_t const before = block.bytes();
   block.lines.push_back( { static_cast<uint32_t>( block.text.size() ), 0, 0 } );
   bytes_ += block.bytes() - before;
   return number;
}

ChangeHistory::Block & ChangeHistory::blockFor( uint64_t number ) {
   if( !blocks_.empty() && blocks_.back().text.size() < limits_.blockBytes ) {
      KEL_ASSERT( blocks_.back().first + blocks_.back().lines.size() == number );
      return blocks_.back();
   }
   while( blocks_.size() > 1 &&
          bytes_ + limits_.blockBytes > ( blocks_.front().time < Kel::now() ? limits_.bytes : limits_.turnBytes ) ) {
      bytes_ -= blocks_.front().bytes();
      forgotten_ = blocks_.front().first + blocks_.front().lines.size() - 1;
      blocks_.pop_front();
   }
   Block & block = blocks_.emplace_back();
   block.first = number;
   // Most lines fit in, and most of the memory is used.
   block.text.reserve( limits_.blockBytes + limits_.blockBytes / 16 );
   bytes_ += block.bytes();
   return block;
}

Kel::Value ChangeHistory::valueAt( StateComponents const & path ) const {
   if( !path.empty() ) return Dovra::stateValue( database_, path );
   Kel::Value::Object all;
   for( std::string const & mounted : database_.paths() ) {
      all.emplace_back( Dovra::Watches::reported( database_, { mounted } ).front(),
                        Dovra::stateValue( database_, StateComponents{ mounted } ) );
   }
   return Kel::value( std::move( all ) );
}

std::shared_ptr<ChangeHistory::Snapshot const> ChangeHistory::snapshot( StateComponents const & path ) {
   std::erase_if( snapshots_, []( auto const & entry ) { return entry.second.expired(); } );
   uint64_t const number = numbers_.last();
   auto const present = snapshots_.find( path );
   auto const shared = present != snapshots_.end() ? present->second.lock() : nullptr;
   // Nothing that is followed has changed since, and this path is, or nobody would have that snapshot.
   if( shared && shared->number == number ) return shared;
   if( *snapshotBytes_ > limits_.snapshotBytes ) return nullptr;
   std::string line;
   LineText::appendHead( line, number, Kel::now() );
   line += "\"snapshot\": [";
   LineText::appendPath( line, path );
   LineText::appendEnd( line, valueAt( path ) );
   line.shrink_to_fit();
   auto const made = std::make_shared<Snapshot const>( number, std::move( line ), snapshotBytes_ );
   snapshots_[path] = made;
   return made;
}

}  // namespace Host
