// What a refresh of the counter table costs: from the bytes of the kernel's answer that lists N links to the written
// rows of all of them. `feed` is the counter feed as the agent has it, with a socket on which nothing is ever sent:
// this program stands in for the kernel and hands out the parts of an answer as the kernel would, 32 KiB each.
// `byHand` is the limit: the same answer, read at fixed places into a table that has nothing but the same rows.
// `kernelAlone` is the part of all of them that is this program's: making the messages. `feedOfOldKernel` is the feed
// of a box whose rows lie in another order than that in which the kernel lists the links.
//
// In the cases named `cold` the caches are emptied between two refreshes, as they are at one refresh a second.
#include <benchmark/benchmark.h>
#include <libmnl/libmnl.h>

#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Cold.h"
#include "feed/CounterFeed.h"
#include "linux/LinkTable.h"
#include "state/MaintenanceState.h"

namespace {

// Answers one question for the counters of links 1 to N. The octets of all are those that were set last.
class StandInKernel {
 public:
   StandInKernel() {
      nlmsghdr & header = *mnl_nlmsg_put_header( message_.data() );
      header.nlmsg_type = RTM_NEWSTATS;
      header.nlmsg_flags = NLM_F_MULTI;
      auto & body = *static_cast<if_stats_msg *>( mnl_nlmsg_put_extra_header( &header, sizeof( if_stats_msg ) ) );
      body.filter_mask = IFLA_STATS_FILTER_BIT( IFLA_STATS_LINK_64 );
      rtnl_link_stats64 const stats{};
      mnl_attr_put( &header, IFLA_STATS_LINK_64, sizeof stats, &stats );
      bytes_ = header.nlmsg_len;
   }

   // The link listed next has an index that is higher by `step`, or begins anew among those below.
   void linksAre( int64_t links, int64_t step ) {
      links_ = links;
      step_ = step;
   }
   void octetsAre( uint64_t in, uint64_t out ) { octets_ = { in, out }; }
   void ask() { next_ = 0; }
   [[nodiscard]] ssize_t answer( char * buffer, std::size_t room ) {
      char * end = buffer;
      for( ; next_ < links_ && end + bytes_ <= buffer + std::min( room, partBytes ); ++next_, end += bytes_ ) {
         std::memcpy( end, message_.data(), bytes_ );
         auto const index = static_cast<uint32_t>( next_ * step_ % links_ + 1 );
         std::memcpy( end + indexAt, &index, sizeof index );
         std::memcpy( end + octetsAt, octets_.data(), sizeof octets_ );
      }
      if( end != buffer ) return end - buffer;
      nlmsghdr & header = *mnl_nlmsg_put_header( buffer );
      header.nlmsg_type = NLMSG_DONE;
      mnl_nlmsg_put_extra_header( &header, sizeof( int ) );
      return header.nlmsg_len;
   }

   static constexpr std::size_t partBytes = 32 * 1024;
   static constexpr std::size_t indexAt = NLMSG_HDRLEN + offsetof( if_stats_msg, ifindex );
   static constexpr std::size_t octetsAt =
      NLMSG_HDRLEN + sizeof( if_stats_msg ) + NLA_HDRLEN + offsetof( rtnl_link_stats64, rx_bytes );

 private:
   alignas( nlmsghdr ) std::array<char, 512> message_{};
   std::size_t bytes_ = 0;  // of a message
   std::array<uint64_t, 2> octets_{};
   int64_t links_ = 0;
   int64_t step_ = 1;
   int64_t next_ = 0;
};

StandInKernel & kernel() {
   static StandInKernel kernel;
   return kernel;
}

}  // namespace

// These are called in place of libmnl's, which come next in the order in which the program's symbols are looked up.
extern "C" ssize_t mnl_socket_sendto( mnl_socket const *, void const *, size_t bytes ) {
   kernel().ask();
   return static_cast<ssize_t>( bytes );
}
extern "C" ssize_t mnl_socket_recvfrom( mnl_socket const *, void * buffer, size_t room ) {
   return kernel().answer( static_cast<char *>( buffer ), room );
}

namespace {

// The box's links and their rows, filled from the kernel's messages as the agent does it.
class Box {
 public:
   explicit Box( int64_t links, int64_t step = 1 ) {
      std::vector<std::byte> answer;
      for( int64_t i = 1; i <= links; ++i ) append( answer, RTM_NEWLINK, static_cast<int>( i ) );
      append( answer, NLMSG_DONE, 0 );
      std::vector<std::byte> end;
      append( end, NLMSG_DONE, 0 );
      kernel().linksAre( links, step );
      loop_.turn( [&] {
         table_.askedIs( Host::Linux::LinkTable::Missing::links );
         if( table_.handle( answer ) != 0 ) std::abort();
         table_.askedIs( Host::Linux::LinkTable::Missing::vlans );
         if( table_.handle( end ) != 0 ) std::abort();
         table_.settle();
      } );
      refresh();
   }
   Box( Box const & ) = delete;
   Box & operator=( Box const & ) = delete;

   // A turn a second after the one before, in which every link has counted some more. Not inlined, so that a profiler
   // can be told to count in here only.
   [[gnu::noinline]] void refresh() {
      now_ += 1;
      octets_ += 1500;
      kernel().octetsAre( octets_, octets_ + 1 );
      loop_.runUntil( *clock_, now_ );
      loop_.turn( [this] { feed_.refresh( KelQuill::Rows::all ); } );
   }
   [[nodiscard]] bool allRead() const {
      auto const & rows = writer_.table();
      for( uint32_t i = 0; i < rows.rows(); ++i ) {
         auto const read = KelQuill::CounterTable::read( rows.row( i ) );
         bool const right = read && read->readTime == now_ && read->inOctets.value() == octets_ &&
                            read->outOctets.value() == octets_ + 1 && read->restarts == 0;
         if( !right ) return false;
      }
      return true;
   }

 private:
   static void append( std::vector<std::byte> & bytes, std::uint16_t type, int index ) {
      alignas( nlmsghdr ) std::array<char, 256> room{};
      nlmsghdr & header = *mnl_nlmsg_put_header( room.data() );
      header.nlmsg_type = type;
      static_cast<ifinfomsg *>( mnl_nlmsg_put_extra_header( &header, sizeof( ifinfomsg ) ) )->ifi_index = index;
      mnl_attr_put_strz( &header, IFLA_IFNAME, ( "swp" + std::to_string( index ) ).c_str() );
      auto const made = std::as_bytes( std::span( room ) ).first( header.nlmsg_len );
      bytes.insert( bytes.end(), made.begin(), made.end() );
   }

   double now_ = 1000;  // s
   uint64_t octets_ = 0;
   Kel::Ptr<Kel::VirtualClock> const clock_{ new Kel::VirtualClock( now_ ) };
   Kel::ActivityLoop loop_{ clock_ };
   Kel::Ptr<Dovra::EntityManager> const database_{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state_{ *database_ };
   KelQuill::CounterWriter writer_{ state_.counterWriterStatus, "" };
   Service::LinkRecords records_{ state_ };
   Host::LinkFeed links_{ records_, writer_, {} };
   Host::Linux::LinkTable table_{ links_ };
   Host::CounterFeed feed_{ links_, writer_, {} };
};

// A kernel that keeps its links in a hash table lists them by the last 8 bits of their indices. Prime to all sizes
// here, so that each comes once.
struct BoxOfOldKernel : Box {
   explicit BoxOfOldKernel( int64_t links ) : Box( links, 257 ) {}
};

// No more than the answer and rows of the table's form.
class ByHand {
 public:
   explicit ByHand( int64_t links ) : rows_( static_cast<std::size_t>( links ) ), listed_( rows_.size() ) {
      kernel().linksAre( links, 1 );
   }

   [[gnu::noinline]] void refresh() {
      now_ += 1;
      octets_ += 1500;
      kernel().octetsAre( octets_, octets_ + 1 );
      kernel().ask();
      std::size_t at = 0;
      for( bool more = true; more; ) {
         auto const bytes = static_cast<std::size_t>( kernel().answer( buffer_.data(), buffer_.size() ) );
         for( std::size_t from = 0; from < bytes; ) {
            nlmsghdr header;
            std::memcpy( &header, buffer_.data() + from, sizeof header );
            if( header.nlmsg_type == NLMSG_DONE ) more = false;
            if( more ) read( listed_[at++], buffer_.data() + from );
            from += header.nlmsg_len;
         }
      }
      for( Listed const & link : listed_ ) write( rows_[link.row], link );
   }
   [[nodiscard]] bool allRead() const {
      return std::all_of( rows_.begin(), rows_.end(), [this]( Row const & row ) {
         return row.time == now_ && row.in == octets_ && row.out == octets_ + 1;
      } );
   }

 private:
   struct Listed {
      uint32_t index, row;
      uint64_t in, out;
   };
   struct alignas( 64 ) Row {
      std::atomic<uint64_t> sequence;
      uint64_t inUse, in, out;
      double time;
      std::byte rest[88];
   };

   void read( Listed & link, char const * message ) {
      std::memcpy( &link.index, message + StandInKernel::indexAt, sizeof link.index );
      std::memcpy( &link.in, message + StandInKernel::octetsAt, 2 * sizeof link.in );
      link.row = link.index - 1;
   }
   void write( Row & row, Listed const & link ) {
      uint64_t const before = row.sequence.load( std::memory_order_relaxed );
      row.sequence.store( before + 1, std::memory_order_relaxed );
      std::atomic_thread_fence( std::memory_order_release );
      row.in = link.in;
      row.out = link.out;
      row.time = now_;
      row.sequence.store( before + 2, std::memory_order_release );
   }

   double now_ = 1000;  // s
   uint64_t octets_ = 0;
   std::vector<Row> rows_;
   std::vector<Listed> listed_;
   std::vector<char> buffer_ = std::vector<char>( StandInKernel::partBytes );
};

// Nothing reads what it makes but this.
class KernelAlone {
 public:
   explicit KernelAlone( int64_t links ) { kernel().linksAre( links, 1 ); }
   [[gnu::noinline]] void refresh() {
      kernel().ask();
      while( kernel().answer( buffer_.data(), buffer_.size() ) > NLMSG_HDRLEN + ssize_t{ sizeof( int ) } ) {
         benchmark::DoNotOptimize( buffer_.data() );
         benchmark::ClobberMemory();
      }
   }
   [[nodiscard]] static bool allRead() { return true; }

 private:
   std::vector<char> buffer_ = std::vector<char>( StandInKernel::partBytes );
};

template<class Reader>
void measure( benchmark::State & state, bool isCold ) {
   Reader reader( state.range() );
   Bench::Cold cold;
   for( int i = 0; i < 3; ++i ) reader.refresh();
   for( auto _ : state ) {
      if( isCold ) {
         state.PauseTiming();
         cold.empty();
         state.ResumeTiming();
      }
      reader.refresh();
   }
   if( !reader.allRead() ) state.SkipWithError( "not every row says what the kernel said last" );
   state.counters["time/link"] = benchmark::Counter( static_cast<double>( state.iterations() * state.range() ),
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert );
}

template<class Reader>
void hot( benchmark::State & state ) {
   measure<Reader>( state, false );
}
template<class Reader>
void cold( benchmark::State & state ) {
   measure<Reader>( state, true );
}

using feed = Box;
using feedOfOldKernel = BoxOfOldKernel;
using byHand = ByHand;
using kernelAlone = KernelAlone;

#define RATEMON_SIZES ->Arg( 1000 )->Arg( 4000 )->Unit( benchmark::kMicrosecond )
BENCHMARK( hot<kernelAlone> ) RATEMON_SIZES;
BENCHMARK( hot<byHand> ) RATEMON_SIZES;
BENCHMARK( hot<feed> ) RATEMON_SIZES;
BENCHMARK( hot<feedOfOldKernel> ) RATEMON_SIZES;
BENCHMARK( cold<kernelAlone> ) RATEMON_SIZES;
BENCHMARK( cold<byHand> ) RATEMON_SIZES;
BENCHMARK( cold<feed> ) RATEMON_SIZES;
BENCHMARK( cold<feedOfOldKernel> ) RATEMON_SIZES;

}  // namespace
