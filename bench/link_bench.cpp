// What it costs to take in the links of a box: reading a configuration that names them all, making the service that
// has them in one unit, and from the bytes of the kernel's answer to link records and counter rows.
//
// The messages are made beforehand, so the kernel's part, the socket and its system calls are not in it. Everything
// must be linear: compare time/link of a small and a large one.
#include <benchmark/benchmark.h>
#include <libmnl/libmnl.h>

#include <linux/if.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "feed/LinkFeed.h"
#include "maintenance/MaintenanceService.h"
#include "quill/EntityManager.h"

namespace {

using Bytes = std::vector<std::byte>;

std::string nameOf( int64_t i ) { return "swp" + std::to_string( i ); }

// Room for one message, made of what the caller puts in.
struct Message {
   alignas( nlmsghdr ) std::array<char, 256> room{};
   nlmsghdr & header = *mnl_nlmsg_put_header( room.data() );

   explicit Message( std::uint16_t type ) { header.nlmsg_type = type; }
   void appendTo( Bytes & bytes ) const {
      auto const made = std::as_bytes( std::span( room ) ).first( header.nlmsg_len );
      bytes.insert( bytes.end(), made.begin(), made.end() );
   }
};

void appendLink( Bytes & bytes, std::uint16_t type, int index, std::string const & name, int master = 0 ) {
   Message message( type );
   auto & body = *static_cast<ifinfomsg *>( mnl_nlmsg_put_extra_header( &message.header, sizeof( ifinfomsg ) ) );
   body.ifi_index = index;
   body.ifi_flags = IFF_UP;
   mnl_attr_put_strz( &message.header, IFLA_IFNAME, name.c_str() );
   mnl_attr_put_u8( &message.header, IFLA_OPERSTATE, IF_OPER_UP );
   if( master ) mnl_attr_put_u32( &message.header, IFLA_MASTER, static_cast<unsigned>( master ) );
   message.appendTo( bytes );
}

void appendEnd( Bytes & bytes ) {
   Message message( NLMSG_DONE );
   mnl_nlmsg_put_extra_header( &message.header, sizeof( int ) );
   message.appendTo( bytes );
}

Bytes plainLinks( std::uint16_t type, int64_t links, int master = 0 ) {
   Bytes bytes;
   for( int64_t i = 0; i < links; ++i ) appendLink( bytes, type, static_cast<int>( i + 1 ), nameOf( i ), master );
   return bytes;
}

// A link of a kind of its own, with the link below and one attribute.
void appendKind( Bytes & bytes, int index, std::string const & kind, int below, std::uint16_t attribute,
                 std::uint16_t value ) {
   Message message( RTM_NEWLINK );
   static_cast<ifinfomsg *>( mnl_nlmsg_put_extra_header( &message.header, sizeof( ifinfomsg ) ) )->ifi_index = index;
   mnl_attr_put_strz( &message.header, IFLA_IFNAME, ( kind + std::to_string( index ) ).c_str() );
   mnl_attr_put_u8( &message.header, IFLA_OPERSTATE, IF_OPER_UP );
   if( below ) mnl_attr_put_u32( &message.header, IFLA_LINK, static_cast<unsigned>( below ) );
   nlattr * const info = mnl_attr_nest_start( &message.header, IFLA_LINKINFO );
   mnl_attr_put_strz( &message.header, IFLA_INFO_KIND, kind.c_str() );
   nlattr * const data = mnl_attr_nest_start( &message.header, IFLA_INFO_DATA );
   mnl_attr_put_u16( &message.header, attribute, value );
   mnl_attr_nest_end( &message.header, data );
   mnl_attr_nest_end( &message.header, info );
   message.appendTo( bytes );
}

std::string configText( int64_t links ) {
   std::string text =
      "profiles: { p: { threshold: 1kbps, sample-interval: 10s, load-interval: 10s } }\n"
      "default-profile: p\nunits: { fabric: { groups: [all] } }\ngroups:\n  all:\n    interfaces:\n";
   for( int64_t i = 0; i < links; ++i ) text += "    - " + nameOf( i ) + "\n";
   return text;
}

class NoHooks final : public Service::Hooks {
   void run( Service::HookRequest const &, Done done ) override { done( "none" ); }
   void giveUp( std::string const & ) override {}
};

// The box's service without a socket.
struct LinkedBox {
   explicit LinkedBox( Service::Config::Config const & config )
      : service( { .database = database,
                   .state = state,
                   .counters = counters,
                   .links = records,
                   .hooks = hooks,
                   .events = {},
                   .wallClockOffset = {} },
                 config ) {}

   void hear( Bytes const & bytes ) {
      if( table.handle( bytes ) != 0 ) std::abort();
   }
   // The answers to the two dumps of the start.
   void load( Bytes const & links ) {
      Bytes end;
      appendEnd( end );
      table.askedIs( Host::Linux::LinkTable::Missing::links );
      hear( links );
      hear( end );
      table.askedIs( Host::Linux::LinkTable::Missing::vlans );
      hear( end );
      table.settle();
   }

   Kel::Ptr<Kel::VirtualClock> const clock{ new Kel::VirtualClock( 1000 ) };
   Kel::ActivityLoop loop{ clock };
   Kel::Ptr<Dovra::EntityManager> const database{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state{ *database };
   KelQuill::CounterWriter writer{ state.counterWriterStatus, "" };
   Service::LinkRecords records{ state };
   Host::LinkFeed feed{ records, writer, {} };
   Host::Linux::LinkTable table{ feed };
   Kel::Ptr<KelQuill::EntityManager> const counters{ new KelQuill::EntityManager( writer.table() ) };
   NoHooks hooks;
   Service::MaintenanceService service;
};

void perLink( benchmark::State & state ) {
   state.counters["time/link"] = benchmark::Counter( static_cast<double>( state.iterations() * state.range() ),
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert );
}

void configurationIsRead( benchmark::State & state ) {
   std::string const text = configText( state.range() );
   for( auto _ : state ) benchmark::DoNotOptimize( Service::Config::parse( text, "bench" ) );
   perLink( state );
}

void serviceIsMade( benchmark::State & state ) {
   auto const config = Service::Config::parse( configText( state.range() ), "bench" );
   for( auto _ : state ) LinkedBox box( config );
   perLink( state );
}

// In a box whose links are those of `before`, what comes with `messages`.
void heard( benchmark::State & state, Bytes const & before, Bytes const & messages, std::size_t linksAfter ) {
   auto const config = Service::Config::parse( configText( state.range() ), "bench" );
   for( auto _ : state ) {
      state.PauseTiming();
      {
         LinkedBox box( config );
         if( !before.empty() ) box.loop.turn( [&] { box.load( before ); } );
         state.ResumeTiming();
         box.loop.turn( [&] {
            if( before.empty() ) return box.load( messages );
            box.hear( messages );
            box.table.settle();
         } );
         state.PauseTiming();
         if( box.table.links().size() != linksAfter ) state.SkipWithError( "not the links that should be there" );
      }
      state.ResumeTiming();
   }
   perLink( state );
}

void linksCome( benchmark::State & state ) {
   heard( state, {}, plainLinks( RTM_NEWLINK, state.range() ), static_cast<std::size_t>( state.range() ) );
}

void linksGo( benchmark::State & state ) {
   heard( state, plainLinks( RTM_NEWLINK, state.range() ), plainLinks( RTM_DELLINK, state.range() ), 0 );
}

// All of them ports of one bridge that looks at no tags, with 50 VLAN links above it.
void portsCome( benchmark::State & state ) {
   int const bridge = static_cast<int>( state.range() ) + 1;
   constexpr int vlans = 50;
   Bytes bytes = plainLinks( RTM_NEWLINK, state.range(), bridge );
   appendKind( bytes, bridge, "bridge", 0, IFLA_BR_VLAN_FILTERING, 0 );
   for( int i = 1; i <= vlans; ++i ) {
      appendKind( bytes, bridge + i, "vlan", bridge, IFLA_VLAN_ID, static_cast<std::uint16_t>( i ) );
   }
   heard( state, {}, bytes, static_cast<std::size_t>( bridge + vlans ) );
}

#define RATEMON_LINK_SIZES ->Arg( 5000 )->Arg( 20000 )->Arg( 100000 )->Unit( benchmark::kMillisecond )
BENCHMARK( configurationIsRead ) RATEMON_LINK_SIZES;
BENCHMARK( serviceIsMade ) RATEMON_LINK_SIZES;
BENCHMARK( linksCome ) RATEMON_LINK_SIZES;
BENCHMARK( linksGo ) RATEMON_LINK_SIZES;
BENCHMARK( portsCome )->Arg( 500 )->Arg( 2000 )->Arg( 10000 )->Unit( benchmark::kMillisecond );

}  // namespace
