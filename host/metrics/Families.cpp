#include "metrics/Families.h"

#include <prometheus/metric_type.h>

#include "kel/Utf8.h"

namespace Host {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using Account = Snapshot::Account;
using Interface = Service::InterfaceAnswer;
using Label = ClientMetric::Label;
using Unit = Snapshot::Unit;

constexpr auto counter = prometheus::MetricType::Counter;
constexpr auto gauge = prometheus::MetricType::Gauge;
constexpr double bitsPerByte = 8;

#ifndef RATEMON_VERSION
#define RATEMON_VERSION "unknown"
#endif

void add( MetricFamily & family, std::vector<Label> labels, double value ) {
   ClientMetric & metric = family.metric.emplace_back();
   metric.label = std::move( labels );
   ( family.type == counter ? metric.counter.value : metric.gauge.value ) = value;
}

std::optional<double> bytes( std::optional<double> const & bits ) {
   return bits ? std::optional( *bits / bitsPerByte ) : std::nullopt;
}

// One series for each unit of which `value` is known.
template<auto value>
void eachUnit( Snapshot const & snapshot, MetricFamily & family ) {
   for( Unit const & unit : snapshot.units ) {
      std::optional<double> const known = value( unit );
      if( known ) add( family, { { "unit", labelText( unit.name ) } }, *known );
   }
}

template<auto value>
void eachInterface( Snapshot const & snapshot, MetricFamily & family ) {
   family.metric.reserve( snapshot.interfaces.size() );
   for( Interface const & intf : snapshot.interfaces ) {
      std::optional<double> const known = value( intf );
      if( known ) add( family, { { "interface", labelText( intf.interface.view() ) } }, *known );
   }
}

template<auto value>
void eachAccount( Snapshot const & snapshot, MetricFamily & family ) {
   for( Unit const & unit : snapshot.units ) {
      for( Account const & account : unit.accounts ) {
         std::optional<double> const known = value( account );
         if( !known ) continue;
         add( family, { { "unit", labelText( unit.name ) }, { "interface", labelText( account.interface ) } }, *known );
      }
   }
}

// The enumerators that have a name, which are the first ones without a gap.
template<class E, class Each>
void eachEnumerator( Each const & each ) {
   for( uint8_t i = 0; enumName( static_cast<E>( i ) ); ++i ) each( static_cast<E>( i ) );
}

void unitStates( Snapshot const & snapshot, MetricFamily & family ) {
   for( Unit const & unit : snapshot.units ) {
      eachEnumerator<Maintenance::Unit::State>( [&]( auto state ) {
         add( family, { { "unit", labelText( unit.name ) }, { "state", enumName( state ) } }, unit.state == state );
      } );
   }
}

void unitAccounts( Snapshot const & snapshot, MetricFamily & family ) {
   for( Unit const & unit : snapshot.units ) {
      if( !unit.underWay ) continue;
      std::map<Evidence::Verdict, double> counts;
      for( Account const & account : unit.accounts ) ++counts[account.verdict];
      eachEnumerator<Evidence::Verdict>( [&]( auto verdict ) {
         add( family, { { "unit", labelText( unit.name ) }, { "verdict", enumName( verdict ) } }, counts[verdict] );
      } );
   }
}

std::optional<double> unsettled( Unit const & unit ) {
   if( !unit.underWay ) return std::nullopt;
   return static_cast<double>( std::ranges::count( unit.accounts, false, &Account::settled ) );
}

// One series an account, which is replaced as the verdict changes: nine of each interface would be too many.
void accountVerdicts( Snapshot const & snapshot, MetricFamily & family ) {
   for( Unit const & unit : snapshot.units ) {
      for( Account const & account : unit.accounts ) {
         add( family,
              { { "unit", labelText( unit.name ) },
                { "interface", labelText( account.interface ) },
                { "verdict", enumName( account.verdict ) } },
              1 );
      }
   }
}

void heldLinks( Snapshot const & snapshot, MetricFamily & family ) {
   eachEnumerator<Service::HoldState>( [&]( auto state ) {
      add( family, { { "state", enumName( state ) } },
           static_cast<double>( snapshot.held[static_cast<std::size_t>( state )] ) );
   } );
}

std::optional<double> upOf( Interface const & intf ) {
   // Of a link that is not there, or that is neither, nothing is said.
   if( intf.operStatus == Service::Text( "up" ) ) return 1;
   return intf.operStatus == Service::Text( "down" ) ? std::optional<double>( 0 ) : std::nullopt;
}

using Maybe = std::optional<double>;

constexpr FamilyOf all[] = {
   { "ratemon_build_info", gauge, "Always 1; which version of the agent this is.",
     []( Snapshot const &, MetricFamily & f ) {
        add( f, { { "version", RATEMON_VERSION } }, 1 );
     } },
   { "ratemon_store_trouble", gauge, "Whether changes cannot be kept on disk; then requests are refused.",
     []( Snapshot const & s, MetricFamily & f ) { add( f, {}, s.storeTrouble ); } },
   { "ratemon_held_links", gauge,
     "Links that the agent has on record as held down, or is about to, by how far that is.", heldLinks },
   { "ratemon_held_links_in_trouble", gauge, "Those of them that are not as they should be.",
     []( Snapshot const & s, MetricFamily & f ) { add( f, {}, static_cast<double>( s.heldInTrouble ) ); } },

   { "ratemon_unit_state", gauge, "The state that the unit is in: 1 for that one, 0 for all others.", unitStates },
   { "ratemon_unit_state_age_seconds", gauge, "How long the unit has been in its state, where that is known.",
     eachUnit<[]( Unit const & u ) { return u.stateAge; }> },
   { "ratemon_unit_generation", gauge, "Number of the request to enter or exit that the unit carried out last.",
     eachUnit<[]( Unit const & u ) -> Maybe { return u.generation; }> },
   { "ratemon_unit_ready", gauge, "Whether every interface of the unit is proven quiet now.",
     eachUnit<[]( Unit const & u ) -> Maybe { return u.ready; }> },
   { "ratemon_unit_disturbed", gauge, "Whether the unit is in maintenance and traffic is back.",
     eachUnit<[]( Unit const & u ) -> Maybe { return u.disturbed; }> },
   { "ratemon_unit_interfaces", gauge, "Interfaces that the unit has by the configuration.",
     eachUnit<[]( Unit const & u ) -> Maybe { return static_cast<double>( u.interfaces ); }> },
   { "ratemon_unit_accounts", gauge, "Interfaces of a unit that is on its way through maintenance, by verdict.",
     unitAccounts },
   { "ratemon_unit_unsettled_accounts", gauge, "Those of them that still keep the unit from being ready.",
     eachUnit<unsettled> },
   { "ratemon_unit_still_needed_seconds", gauge, "How long until all of them are settled if nothing happens.",
     eachUnit<[]( Unit const & u ) { return u.stillNeeded; }> },
   { "ratemon_unit_proof_age_seconds", gauge,
     "How long ago it is that the unit's readiness was last proven by readings.",
     eachUnit<[]( Unit const & u ) { return u.proofAge; }> },
   { "ratemon_unit_traffic_violations_total", counter, "Samples at or above the threshold while in maintenance.",
     eachUnit<[]( Unit const & u ) -> Maybe { return u.violations; }> },

   { "ratemon_account_verdict_info", gauge, "Always 1; what is known of an interface of a unit under way.",
     accountVerdicts },
   { "ratemon_account_settled", gauge, "Whether the interface no longer keeps the unit from being ready.",
     eachAccount<[]( Account const & a ) -> Maybe { return a.settled; }> },
   { "ratemon_account_still_needed_seconds", gauge, "How long until it is settled if nothing happens.",
     eachAccount<[]( Account const & a ) { return a.stillNeeded; }> },
   { "ratemon_account_breaks_total", counter, "Runs of quiet readings that were broken since the request.",
     eachAccount<[]( Account const & a ) -> Maybe { return a.breaks; }> },
   { "ratemon_account_spikes_total", counter, "Times since the request that traffic came back in maintenance.",
     eachAccount<[]( Account const & a ) -> Maybe { return a.spikes; }> },

   { "ratemon_interface_present", gauge, "Whether there is a link of that name.",
     eachInterface<[]( Interface const & i ) -> Maybe { return i.operStatus != Service::Text( "missing" ); }> },
   { "ratemon_interface_up", gauge, "Whether the link is operationally up, where it is up or down.",
     eachInterface<upOf> },
   { "ratemon_interface_held", gauge, "Whether the agent holds the link down.",
     eachInterface<[]( Interface const & i ) -> Maybe { return i.shutDown; }> },
   { "ratemon_interface_monitored", gauge, "Whether the rate monitor has a record of the interface.",
     eachInterface<[]( Interface const & i ) -> Maybe { return i.monitoring.has_value(); }> },
   { "ratemon_interface_receive_bytes_per_second", gauge, "Rate of the last reading that counts.",
     eachInterface<[]( Interface const & i ) { return bytes( i.inBitsRate ); }> },
   { "ratemon_interface_transmit_bytes_per_second", gauge, "Rate of the last reading that counts.",
     eachInterface<[]( Interface const & i ) { return bytes( i.outBitsRate ); }> },
   { "ratemon_interface_threshold_bytes_per_second", gauge, "Below which both rates have to be.",
     eachInterface<[]( Interface const & i ) { return bytes( i.thresholdBitsRate ); }> },
   { "ratemon_interface_sample_interval_seconds", gauge, "By the profile in force; drained, it is twice that.",
     eachInterface<[]( Interface const & i ) { return i.sampleIntervalSeconds; }> },
   { "ratemon_interface_load_interval_seconds", gauge, "How long it has to be quiet, by the profile in force.",
     eachInterface<[]( Interface const & i ) { return i.loadIntervalSeconds; }> },
   { "ratemon_interface_samples_total", counter, "Samples since the interface is monitored.",
     eachInterface<[]( Interface const & i ) -> Maybe {
        return i.totalSamples ? Maybe( *i.totalSamples ) : Maybe();
     }> },
   { "ratemon_interface_last_sample_age_seconds", gauge, "How long ago the last sample was taken.",
     eachInterface<[]( Interface const & i ) { return i.lastSampleSecondsAgo; }> },
};

}  // namespace

prometheus::MetricFamily FamilyOf::collected( Snapshot const & snapshot ) const {
   MetricFamily family{ name, help, type, {} };
   fill( snapshot, family );
   return family;
}

std::span<FamilyOf const> families() { return all; }

std::string labelText( std::string_view text ) {
   std::string valid;
   valid.reserve( text.size() );
   while( !text.empty() ) {
      std::size_t const length = Kel::sequenceLength( text );
      if( length == 0 ) {
         static char const hex[] = "0123456789abcdef";
         auto const byte = static_cast<unsigned char>( text.front() );
         valid.append( { '\\', 'x', hex[byte >> 4], hex[byte & 0xf] } );
      } else {
         valid += text.substr( 0, length );
      }
      text.remove_prefix( length == 0 ? 1 : length );
   }
   return valid;
}

}  // namespace Host
