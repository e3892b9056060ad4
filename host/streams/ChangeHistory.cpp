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

// As JSON.
void appendEntity( std::string & text, Dovra::WatchedPlace const & entity ) {
   if( entity.above ) {
      appendEntity( text, *entity.above );
      text += ", ";
   }
   if( entity.name ) {
      Kel::appendJson( text, *entity.name );
      text += ", ";
   }
   Kel::appendJson( text, entity.key );
}

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
   followed.watches = std::make_unique<Dovra::Watches>( database_, static_cast<Dovra::Watches::Listener &>( *this ) );
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
   written_.clear();
   bytes_ = 0;
   forgotten_ = numbers_.last();
   snapshots_.clear();
}

void ChangeHistory::onChange( Dovra::Watches::Change const & change, Kel::Value const & value ) {
   // First of all, as it may itself write a record that is followed.
   uint64_t const number = numbers_.next();
   Block & block = blockFor( number );
   std::size_t const before = block.bytes();
   auto const begin = static_cast<uint32_t>( block.text.size() );
   if( change.key ) Kel::appendJson( block.text, *change.key );
   auto const valueBegin = static_cast<uint32_t>( block.text.size() );
   Kel::appendJson( block.text, value );
   block.changes.push_back( { change.entity, change.name, Kel::now(), begin, valueBegin } );
   bytes_ += block.bytes() - before;
   if( !waiting_.empty() ) wakeConcerned( block );
}

void ChangeHistory::wakeConcerned( Block const & block ) {
   std::string path;
   appendPath( path, block, block.changes.back() );
   // Each takes itself off when it is told.
   for( std::size_t i = waiting_.size(); i-- > 0; ) {
      ChangeReader & reader = *waiting_[i];
      if( !reader.concerns( path ) ) continue;
      reader.place_ = block.end() - 2;
      reader.wake();
   }
}

void ChangeHistory::appendPath( std::string & text, Block const & block, Change const & change ) {
   appendEntity( text, *change.entity );
   if( change.name ) {
      text += ", ";
      Kel::appendJson( text, *change.name );
   }
   if( change.keyBegin == change.valueBegin ) return;
   text += ", ";
   text.append( block.text, change.keyBegin, change.valueBegin - change.keyBegin );
}

uint64_t ChangeHistory::addNothing() {
   uint64_t const number = numbers_.next();
   Block & block = blockFor( number );
   std::size_t const before = block.bytes();
   auto const end = static_cast<uint32_t>( block.text.size() );
   block.changes.push_back( { nullptr, nullptr, Kel::now(), end, end } );
   bytes_ += block.bytes() - before;
   return number;
}

ChangeHistory::Block & ChangeHistory::blockFor( uint64_t number ) {
   if( !blocks_.empty() ) {
      Block & last = blocks_.back();
      KEL_ASSERT( last.end() == number );
      if( last.text.size() + last.changes.size() * sizeof( Change ) < limits_.blockBytes ) return last;
      std::size_t const before = last.bytes();
      last.text.shrink_to_fit();
      last.changes.shrink_to_fit();
      bytes_ -= before - last.bytes();
   }
   forgetOldest();
   Block & block = blocks_.emplace_back();
   block.first = number;
   bytes_ += block.bytes();
   return block;
}

void ChangeHistory::forgetOldest() {
   while( blocks_.size() > 1 ) {
      Block const & oldest = blocks_.front();
      auto const limit = oldest.changes.back().time >= Kel::now() ? limits_.turnBytes
                         : isUnread( oldest )                     ? limits_.unreadBytes
                                                                  : limits_.bytes;
      if( bytes_ + limits_.blockBytes <= limit ) return;
      bytes_ -= oldest.bytes();
      forgotten_ = oldest.end() - 1;
      blocks_.pop_front();
   }
}

bool ChangeHistory::isUnread( Block const & block ) const {
   return std::ranges::any_of( readers_, [&]( ChangeReader const * reader ) {
      return !reader->waiting_ && !reader->lost() && reader->place_ + 1 < block.end();
   } );
}

ChangeHistory::Written const & ChangeHistory::written( Block const & block ) {
   auto found = std::ranges::find( written_, block.first, &Written::first );
   if( found == written_.end() ) {
      if( written_.size() >= limits_.writtenBlocks ) written_.pop_front();
      written_.push_back( { block.first, {}, {} } );
      found = std::prev( written_.end() );
   }
   // What has come since it was written last.
   while( found->lines.size() < block.changes.size() ) write( block, *found );
   return *found;
}

// The next one.
void ChangeHistory::write( Block const & block, Written & written ) {
   std::size_t const i = written.lines.size();
   Change const & change = block.changes[i];
   Line line{ static_cast<uint32_t>( written.text.size() ), 0, 0 };
   if( change.entity ) {
      LineText::appendHead( written.text, block.first + i, change.time );
      written.text += "\"change\": [";
      line.pathBegin = static_cast<uint32_t>( written.text.size() );
      appendPath( written.text, block, change );
      line.pathSize = static_cast<uint32_t>( written.text.size() - line.pathBegin );
      std::size_t const end = i + 1 < block.changes.size() ? block.changes[i + 1].keyBegin : block.text.size();
      LineText::appendEnd( written.text,
                           std::string_view( block.text ).substr( change.valueBegin, end - change.valueBegin ) );
   }
   written.lines.push_back( line );
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
   LineText::appendEnd( line, Kel::toJson( valueAt( path ) ) );
   line.shrink_to_fit();
   auto const made = std::make_shared<Snapshot const>( number, std::move( line ), snapshotBytes_ );
   snapshots_[path] = made;
   return made;
}

}  // namespace Host
