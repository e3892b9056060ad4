#include "feed/LinkFeed.h"

#include <algorithm>
#include <utility>

namespace Host {

using Linux::Link;
using Linux::LinkTable;
using Lumo::IntfKind;
using Service::LinkReport;

namespace {

std::set<int> const & at( std::unordered_map<int, std::set<int>> const & indices, int index ) {
   static std::set<int> const none;
   auto const found = indices.find( index );
   return found == indices.end() ? none : found->second;
}

void remove( std::unordered_map<int, std::set<int>> & indices, int index, int entry ) {
   auto const found = indices.find( index );
   if( found == indices.end() ) return;
   found->second.erase( entry );
   if( found->second.empty() ) indices.erase( found );
}

// Members come before what they belong to, so that they are of the right kind by then.
int rankOf( IntfKind kind ) { return kind == IntfKind::vlan ? 2 : kind == IntfKind::portChannel ? 1 : 0; }

}  // namespace

LinkFeed::LinkFeed( Service::LinkRecords & links, KelQuill::CounterWriter & counters, Tell tell, OnLink onLink )
   : links_( links ), counters_( counters ), tell_( std::move( tell ) ), onLink_( std::move( onLink ) ) {}

Lumo::IntfId LinkFeed::interface( int index ) const {
   auto const found = known_.find( index );
   return found == known_.end() || !found->second.published ? Lumo::IntfId() : found->second.intf;
}

void LinkFeed::onLink( Link const & link ) {
   bool const isNew = !known_.contains( link.index );
   Known & known = known_[link.index];
   known.intf = Lumo::IntfId( link.name );
   Place const place{ link.master, isVlan( link ) ? link.parent : 0, kept( link.kind ), link.vlanId, link.vlanAware };
   if( isNew || known.place != place ) placeIs( link.index, known.place, place );
   if( onLink_ ) onLink_( known.intf );
   bool const up = link.oper == Linux::Oper::up;
   if( !known.published || known.report.up == up ) return;
   known.report.up = up;
   links_.linkIs( known.intf, known.report );
}

void LinkFeed::onLinkGone( Link const & link ) {
   auto const gone = known_.extract( link.index );
   if( !gone ) return;
   Known & known = gone.mapped();
   // The other way round than it came. That the index is not known any more comes first, because a read that still
   // found it would write to a row that is not there, which is a failed assertion.
   if( known.published ) ++generation_;
   placeIs( link.index, known.place, {} );
   if( onLink_ ) onLink_( known.intf );
   if( !known.published ) return;
   links_.linkDel( known.intf );
   rowDel( known.intf );
}

void LinkFeed::onVlans( int port ) {
   auto const known = known_.find( port );
   if( known != known_.end() ) touch( known->second.place.master );
}

void LinkFeed::placeIs( int index, Place & present, Place const & place ) {
   Place const before = std::exchange( present, place );
   remove( belonging_, before.master, index );
   remove( above_, before.below, index );
   if( present.master ) belonging_[present.master].insert( index );
   if( present.below ) above_[present.below].insert( index );
   for( int const touched : { index, before.master, present.master } ) touch( touched );
}

void LinkFeed::touch( int index ) {
   if( index ) touched_.insert( index );
}

void LinkFeed::onSettled( LinkTable const & table ) {
   if( touched_.empty() ) return;
   std::vector<std::pair<Link const *, LinkReport>> reports;
   for( Link const * const link : stale( table ) ) {
      reports.emplace_back( link,
                            reportOf( *link, table, at( belonging_, link->index ), at( belonging_, link->parent ) ) );
   }
   touched_.clear();
   std::ranges::stable_sort( reports, {}, []( auto const & entry ) { return rankOf( entry.second.kind ); } );
   for( auto const & [link, report] : reports ) publish( *link, report );
}

std::vector<Link const *> LinkFeed::stale( LinkTable const & table ) const {
   std::vector<int> indices( touched_.begin(), touched_.end() );
   for( int const index : touched_ ) {
      auto const & above = at( above_, index );
      indices.insert( indices.end(), above.begin(), above.end() );
   }
   std::ranges::sort( indices );
   indices.erase( std::unique( indices.begin(), indices.end() ), indices.end() );
   std::vector<Link const *> links;
   for( int const index : indices ) {
      if( Link const * const link = table.link( index ) ) links.push_back( link );
   }
   return links;
}

void LinkFeed::publish( Link const & link, LinkReport const & report ) {
   Known & known = known_.at( link.index );
   if( known.published && known.report == report ) return;
   // Row before record: whoever hears of the interface finds its counters. The index before both, so that every read
   // from here on fills the row.
   known.published = true;
   known.report = report;
   ++generation_;
   if( report.kind == IntfKind::ethernet ) rowIs( known.intf );
   links_.linkIs( known.intf, report );
   if( report.kind != IntfKind::ethernet ) rowDel( known.intf );
}

// Rows

void LinkFeed::rowIs( Lumo::IntfId intf ) {
   if( counters_.hasRow( intf ) || rowless_.contains( intf ) ) return;
   auto const trouble = rowTrouble( intf );
   if( trouble.empty() ) {
      retryRows();
      return;
   }
   bool const told = !rowless_.empty();
   rowless_.insert( intf );
   if( !told && tell_ )
      tell_( std::string( intf.name() ) + " goes without counters, and so do others: " + trouble, true );
}

void LinkFeed::rowDel( Lumo::IntfId intf ) {
   rowless_.erase( intf );
   if( !counters_.hasRow( intf ) ) return;
   counters_.rowDel( intf );
   retryRows();
}

std::string LinkFeed::rowTrouble( Lumo::IntfId intf ) {
   try {
      counters_.rowIs( intf );
   } catch( KelQuill::TableError const & error ) {
      return error.what();
   }
   return {};
}

void LinkFeed::retryRows() {
   if( rowless_.empty() ) return;
   while( !rowless_.empty() && rowTrouble( *rowless_.begin() ).empty() ) rowless_.erase( rowless_.begin() );
   if( rowless_.empty() && tell_ ) tell_( "every link has counters again", false );
}

}  // namespace Host
