#include "record/RecordedBox.h"

#include <utility>

#include "kel/ActivityLoop.h"
#include "kel/Json.h"
#include "records/Errdisable.h"
#include "records/Names.h"

namespace Host {

using Lumo::IntfId;
using Lumo::IntfKind;
using Service::LinkReport;

namespace {

// A link needs some time to come up, and a port that negotiates some seconds.
constexpr double comesUpWithin = 10;  // s

// Longer lists of one line are cut, so that no line is endless.
constexpr std::size_t countersPerLine = 100;

char const * wordOf( IntfKind kind ) {
   switch( kind ) {
      case IntfKind::ethernet: return "ethernet";
      case IntfKind::portChannel: return "port-channel";
      case IntfKind::vlan: return "vlan";
      case IntfKind::subIntf: return "sub-interface";
      case IntfKind::cpu: return "cpu";
      case IntfKind::other: return "other";
   }
   return "other";
}

std::string quoted( IntfId intf ) { return Kel::toJson( std::string_view( intf.name() ) ); }

char const * stateOf( LinkReport const & report ) { return report.up ? "\"up\"" : "\"down\""; }

std::string whole( LinkReport const & report, bool withState ) {
   std::string text = "{";
   if( withState ) text += std::string( "\"state\": " ) + stateOf( report ) + ", ";
   text += std::string( "\"kind\": \"" ) + wordOf( report.kind ) + "\"";
   if( report.kind == IntfKind::vlan && report.vlanId != 0 ) text += ", \"vlan\": " + std::to_string( report.vlanId );
   if( report.kind == IntfKind::vlan || report.kind == IntfKind::portChannel ) {
      text += ", \"members\": [";
      for( std::string const & member : report.members ) {
         text += ( &member == &report.members.front() ? "" : ", " ) + Kel::toJson( std::string_view( member ) );
      }
      text += "]";
   }
   return text + "}";
}

std::string linkLine( IntfId intf, std::string const & link ) {
   return "{\"link\": {" + quoted( intf ) + ": " + link + "}}";
}

std::string octets( IntfId intf, uint64_t in, uint64_t out ) {
   return quoted( intf ) + ":{\"in\":" + std::to_string( in ) + ",\"out\":" + std::to_string( out ) + "}";
}

void add( std::string & list, std::string const & element ) { list += ( list.empty() ? "" : "," ) + element; }

std::string names( std::set<IntfId> const & intfs ) {
   std::string list;
   for( IntfId const intf : intfs ) add( list, quoted( intf ) );
   return list;
}

void addCounterLines( std::vector<std::string> const & counters, std::vector<std::string> & lines ) {
   for( std::size_t i = 0; i < counters.size(); i += countersPerLine ) {
      std::string list;
      for( std::size_t k = i; k < std::min( i + countersPerLine, counters.size() ); ++k ) add( list, counters[k] );
      lines.push_back( "{\"counters\": {" + list + "}}" );
   }
}

// Counters of 63 bits; one without a value stands at what was said of it last.
uint64_t valueOf( Brim::MaybeU63 const & counter, uint64_t before ) {
   return counter.hasValue() ? counter.value() : before;
}

}  // namespace

void RecordedBox::configIs( Service::Config::Config const & config, Lines & lines ) {
   for( Service::Config::Group const & group : config.groups ) {
      for( std::string const & name : group.interfaces ) nameIs( IntfId( name ), lines );
   }
}

void RecordedBox::nameIs( IntfId intf, Lines & lines ) {
   if( !said_.emplace( intf, Said() ).second ) return;
   handleLink( intf, lines );
}

void RecordedBox::membersAre( LinkReport const & report, Lines & lines ) {
   for( std::string const & member : report.members ) nameIs( IntfId( member ), lines );
}

bool RecordedBox::held( IntfId intf ) const {
   auto const cause = Kel::dynamicPtrCast<Errdisable::CauseStatus const>(
      state_.errdisableCauses->entityRef( Maintenance::shutdownCause ) );
   return cause && cause->intfStatus( intf );
}

void RecordedBox::handleLink( IntfId intf, Lines & lines ) {
   auto const found = said_.find( intf );
   if( found == said_.end() ) return;
   Said & said = found->second;
   auto report = links_.link( intf );
   if( !report ) {
      if( said.report ) lines.push_back( linkLine( intf, "null" ) );
      said = {};
      return;
   }
   // First, so that what it is made of is there before it.
   membersAre( *report, lines );
   bool const isHeld = held( intf );
   // By somebody else than us, who let go first. From then on its state is not our doing.
   bool const raisedNow = isHeld && said.ours && report->up;
   said.raised = isHeld && ( said.raised || raisedNow );
   if( report->up ) {
      said.ours = false;
   } else if( isHeld && !said.raised ) {
      said.ours = true;
   }
   if( said.ours ) report->up = said.report ? said.report->up : true;
   if( !said.ours ) {
      said.letGo.reset();
      if( std::exchange( said.late, false ) && report->up ) lines.push_back( linkLine( intf, "{\"late\": false}" ) );
   }
   if( raisedNow ) lines.push_back( linkLine( intf, stateOf( *report ) ) );
   if( said.report == report ) return;
   LinkReport sameState = *report;
   sameState.up = said.report && said.report->up;
   bool const onlyState = said.report == sameState;
   // A state that has not changed is not said with what has: one that the replay holds would be raised by it.
   bool const withState = !said.report || said.report->up != report->up;
   said.report = std::move( report );
   lines.push_back( linkLine( intf, onlyState ? stateOf( *said.report ) : whole( *said.report, withState ) ) );
}

void RecordedBox::handleTime( Lines & lines ) {
   for( auto & [intf, said] : said_ ) {
      if( !said.ours && !said.raised ) continue;
      if( held( intf ) ) {
         said.letGo.reset();
         continue;
      }
      // Of another hold nothing is known yet.
      said.raised = false;
      if( !said.ours ) continue;
      if( !said.letGo ) {
         said.letGo = Kel::now();
         said.late = said.report->up;
         if( said.late ) lines.push_back( linkLine( intf, "{\"late\": true}" ) );
      }
      if( Kel::now() - *said.letGo < comesUpWithin ) continue;
      said.ours = false;
      handleLink( intf, lines );
   }
}

void RecordedBox::counters( std::optional<double> const & read, Lines & lines ) {
   Lines changed;
   std::string restarted;
   // A turn without a read tells nothing new of rows that were there before it.
   unreadNow_ = read ? std::set<IntfId>() : unread_;
   for( auto & [intf, said] : said_ ) {
      bool const counts = said.report && said.report->kind == IntfKind::ethernet;
      if( counts ) count( intf, said, read, changed, restarted );
   }
   if( unreadNow_ != unread_ ) {
      unread_ = unreadNow_;
      lines.push_back( "{\"unread\": [" + names( unread_ ) + "]}" );
   }
   if( !restarted.empty() ) lines.push_back( "{\"restartCounters\": [" + restarted + "]}" );
   addCounterLines( changed, lines );
}

void RecordedBox::count( IntfId intf, Said & said, std::optional<double> const & read, Lines & changed,
                         std::string & restarted ) {
   Counted & before = said.counted;
   auto const row = counters_.lastRead( intf );
   if( !row ) {
      // A replay gives each link counters; one that nobody can count must not pass for quiet.
      if( before.row || !before.known ) changed.push_back( quoted( intf ) + ":null" );
      before = { .known = true };
      return;
   }
   // In a replay the row of a link that has come is read at once, unless it is said not to be: here nothing is known of
   // it until a read succeeds.
   bool const never = row->readTime == 0;
   if( never || ( read && row->readTime < *read ) ) unreadNow_.insert( intf );
   if( never ) return;
   Counted const now{ true, true, valueOf( row->inOctets, before.in ), valueOf( row->outOctets, before.out ),
                      row->restarts };
   // Of a row that is new here a restart is nothing that a replay could have missed.
   if( before.row && now.restarts != before.restarts ) add( restarted, quoted( intf ) );
   bool const same = before.row && now.in == before.in && now.out == before.out;
   if( !same ) changed.push_back( octets( intf, now.in, now.out ) );
   before = now;
}

RecordedBox::Lines RecordedBox::all() const {
   Lines lines, counted;
   for( bool const made : { false, true } ) {
      for( auto const & [intf, said] : said_ ) {
         if( !said.report || made != !said.report->members.empty() ) continue;
         lines.push_back( linkLine( intf, whole( *said.report, true ) ) );
         if( said.report->kind != IntfKind::ethernet || !said.counted.known ) continue;
         counted.push_back( said.counted.row ? octets( intf, said.counted.in, said.counted.out )
                                             : quoted( intf ) + ":null" );
      }
   }
   addCounterLines( counted, lines );
   if( !unread_.empty() ) lines.push_back( "{\"unread\": [" + names( unread_ ) + "]}" );
   return lines;
}

}  // namespace Host
