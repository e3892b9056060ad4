#include "store/Release.h"

#include <algorithm>
#include <ostream>

#include "kel/Dir.h"
#include "links/HeldLinks.h"
#include "records/Errdisable.h"
#include "records/Names.h"
#include "store/Records.h"
#include "store/RowText.h"
#include "store/Store.h"
#include "store/StoreFile.h"

namespace Host {

namespace {

using Record = Kel::Ptr<Service::HeldLink>;
using Service::HoldState;

class Release {
 public:
   Release( ReleaseRequest const & request, Service::LinkSwitch & links, std::ostream & out, std::ostream & err )
      : request_( request ),
        links_( links ),
        out_( out ),
        err_( err ),
        store_( request.store, Store::Opening::salvage ),
        held_( Service::heldLinkDir( *database_ ) ),
        causes_( database_->create<Kel::Dir>( Maintenance::Path::errdisableCauses ) ) {}

   int run() {
      if( !store_.damage().empty() ) err_ << store_.damage() << "\n";
      read( Service::heldLinksPath );
      entriesAreKnown_ = read( Maintenance::Path::errdisableCauses );
      auto const wanted = wantedRecords();
      if( request_.listOnly ) return list( wanted );
      if( request_.intfs.empty() && wanted.empty() ) out_ << "no link is held down\n";
      std::vector<Record> ours;
      for( Record const & record : wanted ) {
         std::string const why = leftBecause( *record );
         if( why.empty() ) {
            ours.push_back( record );
         } else {
            say( *record, "left as it is: " + why );
         }
      }
      setUp( ours );
      return failed_ ? 1 : 0;
   }

 private:
   // For programs: nothing but names.
   int list( std::vector<Record> const & wanted ) {
      for( Record const & record : wanted ) {
         if( leftBecause( *record ).empty() ) out_ << record->name() << "\n";
      }
      return failed_ ? 1 : 0;
   }

   // Whether all rows below the path are records now. What is not is told.
   bool read( std::string_view path ) {
      bool all = true;
      try {
         for( Store::Row const & row : store_.rows( path ) ) {
            try {
               Records::restore( *database_, row );
            } catch( std::exception const & error ) {
               fail( "the row \"" + row.path + "\" fits no record: " + error.what() );
               all = false;
            }
         }
         return all;
      } catch( StoreError const & error ) {
         fail( error.what() );
         return false;
      }
   }

   std::vector<Record> wantedRecords() {
      std::vector<Record> found;
      if( request_.intfs.empty() ) {
         for( auto [intf, record] : held_->heldIterator() ) found.push_back( record );
         std::ranges::sort( found, {}, []( Record const & r ) { return r->intfId(); } );
      }
      for( std::string const & name : request_.intfs ) {
         auto const intf = Lumo::IntfId::known( name );
         Record const record = intf ? held_->held( *intf ) : nullptr;
         if( record ) {
            found.push_back( record );
         } else {
            fail( name + ": is not held down by maintd" );
         }
      }
      return found;
   }

   // Why a link is none of ours to set up; empty when it is.
   std::string leftBecause( Service::HeldLink const & record ) const {
      if( record.boot() != Kel::String8( request_.boot ) ) {
         return "the machine was started since it was held, and it is as the machine made it";
      }
      switch( record.state() ) {
         case HoldState::foundDown: return "it was down before maintd would have taken it down";
         case HoldState::raised: return "somebody else has set it up since";
         case HoldState::released: return "it was released before";
         case HoldState::taking:
         case HoldState::held:
         case HoldState::releasing: break;
      }
      return links_.link( record.index() ) ? "" : "there is no such link any more";
   }

   void setUp( std::vector<Record> const & ours ) {
      for( Record const & record : ours ) record->stateIs( HoldState::releasing );
      std::string const why = kept( ours, {} );
      for( Record const & record : ours ) {
         if( why.empty() ) {
            setUp( *record );
         } else {
            say( *record,
                 "not touched, as nothing can be recorded; by hand: ip link set dev " + record->name() + " up" );
         }
      }
      if( !why.empty() ) fail( why );
   }

   void setUp( Service::HeldLink & record ) {
      auto const link = links_.link( record.index() );
      bool const up = link && link->adminUp;
      std::string const why = up ? "" : links_.adminUpIs( record.index(), true );
      if( !why.empty() ) {
         failed_ = true;
         return say( record, "cannot be set up: " + why );
      }
      std::string remark = up ? "is up already" : "set up";
      if( record.keepAddrWas() != Service::HeldLink::notOurs ) {
         std::string const kernel = links_.keepAddrOnDownIs( record.index(), record.keepAddrWas() );
         if( !kernel.empty() ) remark += "; keep_addr_on_down stays set: " + kernel;
         if( kernel.empty() ) record.keepAddrWasIs( Service::HeldLink::notOurs );
      }
      record.troubleDel();
      say( record, remark + given( record ) );
   }

   // That it is given back, on record. What is to be said of it.
   std::string given( Service::HeldLink & record ) {
      if( !store_.damage().empty() ) return "";
      record.stateIs( HoldState::released );
      std::string const why = hasEntry( record.intfId() ) ? kept( { &record }, {} ) : kept( {}, { &record } );
      if( why.empty() ) return "";
      fail( why );
      return ", which could not be recorded: the next maintd may take it down again";
   }

   bool hasEntry( Lumo::IntfId intf ) const {
      if( !entriesAreKnown_ ) return true;
      for( auto [name, entity] : causes_->entityIteratorConst() ) {
         auto const cause = Kel::dynamicPtrCast<Errdisable::CauseStatus const>( entity );
         if( cause && cause->intfStatus( intf ) ) return true;
      }
      return false;
   }

   // Why not; empty when it is. A damaged store is not written.
   std::string kept( std::vector<Record> const & written, std::vector<Record> const & deleted ) {
      if( !store_.damage().empty() || ( written.empty() && deleted.empty() ) ) return "";
      try {
         Store::Changes changes;
         for( Record const & record : written ) changes.written.push_back( { pathOf( *record ), textOf( *record ) } );
         for( Record const & record : deleted ) changes.deleted.push_back( pathOf( *record ) );
         store_.commit( changes );
         return "";
      } catch( StoreError const & error ) {
         return error.what();
      }
   }
   static std::string pathOf( Service::HeldLink const & record ) {
      return RowText::joined( std::string( Service::heldLinksPath ) + "/held", record.name() );
   }
   static std::string textOf( Service::HeldLink const & record ) {
      return RowText::of( Kel::Value( Kel::Value::Content( Records::rowValue( record, false ) ) ) );
   }

   void say( Service::HeldLink const & record, std::string const & text ) {
      out_ << record.name() << ": " << text << "\n";
   }
   void fail( std::string const & text ) {
      failed_ = true;
      err_ << text << "\n";
   }

   ReleaseRequest const & request_;
   Service::LinkSwitch & links_;
   std::ostream & out_;
   std::ostream & err_;
   Store store_;
   Kel::Ptr<Dovra::EntityManager> const database_{ new Dovra::EntityManager };
   Kel::Ptr<Service::HeldLinkDir> const held_;
   Kel::Ptr<Kel::Dir> const causes_;
   bool entriesAreKnown_ = false;
   bool failed_ = false;
};

}  // namespace

int release( ReleaseRequest const & request, Service::LinkSwitch & links, std::ostream & out, std::ostream & err ) {
   try {
      // Opening it would make one.
      if( !StoreFile::isThere( request.store ) ) {
         if( !request.listOnly ) out << "no link is held down: there is no store " << request.store << "\n";
         return request.intfs.empty() ? 0 : 1;
      }
      return Release( request, links, out, err ).run();
   } catch( StoreError const & error ) {
      err << error.what() << "\n";
      return 1;
   }
}

}  // namespace Host
