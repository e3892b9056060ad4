#include "brisklog/Follower.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <system_error>
#include <utility>

#include "brisklog/Reader.h"

namespace Brisklog {

Follower::~Follower() {
   if( fd_ >= 0 ) close( fd_ );
}

// Whether the ring was replaced is asked before the open one is read: it is replaced only after its writer has gone, so
// what is read then is all that it will ever hold.
std::optional<Follower::News> Follower::next() {
   bool const goesOn = !replaced();
   if( fd_ >= 0 ) {
      if( auto news = readOn() ) return news;
   }
   if( goesOn ) return std::nullopt;
   reopen();
   return fd_ >= 0 ? readOn() : std::nullopt;
}

// A file that is merely gone may come back, and until then the open one may still be written to. A new file cannot have
// the number of the open one: a number is given again only when nobody has the file open.
bool Follower::replaced() const {
   struct stat there = {};
   struct stat mine = {};
   if( stat( path_.c_str(), &there ) != 0 ) return fd_ < 0;
   if( fd_ < 0 || fstat( fd_, &mine ) != 0 ) return true;
   return there.st_dev != mine.st_dev || there.st_ino != mine.st_ino;
}

void Follower::reopen() {
   // Opened before the old one is closed: where that fails, the old one is followed on.
   int const fd = open( path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC );
   if( fd < 0 && errno == ENOENT ) return;  // gone since it was seen
   if( fd < 0 ) throw RingError( "ring trace " + path_ + ": " + std::generic_category().message( errno ) );
   newRing_ = fd_ >= 0;  // the first one is news, but replaces none
   if( fd_ >= 0 ) close( fd_ );
   fd_ = fd;
   head_ = std::nullopt;
   sequence_ = 0;
   damageTold_ = false;
}

std::optional<Follower::News> Follower::readOn() {
   // Taken before the copy: what is written in between moves the head once more, and is found at the next call. A
   // header that cannot be read is left to the reader, which says what is wrong with the file.
   uint64_t head = 0;
   bool const known = pread( fd_, &head, sizeof head, offsetof( FileHeader, head ) ) == sizeof head;
   if( known && head_ == head ) return std::nullopt;
   Reader reader( fd_, path_ );
   bool const first = !head_;
   head_ = head;  // not before there is a reader: a call that throws must not count as done
   News news;
   while( auto message = reader.next() ) {
      if( message->sequence < sequence_ ) continue;  // given before: the reader always begins at the oldest
      // What was overwritten before the first look at a ring is history, not missed.
      if( !first ) news.missed += message->sequence - sequence_;
      sequence_ = message->sequence + 1;
      news.messages.push_back( std::move( *message ) );
   }
   news.newRing = std::exchange( newRing_, false );
   news.damaged = reader.damaged() && !std::exchange( damageTold_, true );
   news.thisBoot = reader.thisBoot();
   return news;
}

}  // namespace Brisklog
