#include "store/Keeper.h"

#include <algorithm>
#include <boost/container/flat_map.hpp>
#include <list>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "evidence/Windows.h"
#include "kel/ActivityLoop.h"
#include "kel/TurnEnd.h"
#include "records/IntfId.h"
#include "state/TurnEndRank.h"
#include "store/Passing.h"
#include "store/Records.h"
#include "store/RowText.h"
#include "store/SeriesTurns.h"

namespace Host {

namespace {

constexpr double passingSeconds = 10;
constexpr double longestPause = 10;  // s

// 0 for one that says no VLAN, which nobody may ask for its VLAN then either.
uint16_t vlanIdOf( Lumo::IntfId intf ) {
   if( !Lumo::VlanIntfId::isVlanIntfId( intf ) ) return 0;
   try {
      return Lumo::VlanIntfId::vlanId( intf );
   } catch( Kel::RangeError const & ) {
      return 0;
   }
}

}  // namespace

class Keeper::Impl final : public Kel::TurnEnd, public FollowerListener {
 public:
   explicit Impl( Parts parts )
      : TurnEnd( Maintenance::recordsKept ),
        parts_( std::move( parts ) ),
        series_( Kel::now() ),
        passingDue_( *this, &Impl::handlePassing ),
        retryDue_( *this, &Impl::handleRetry ) {
      auto const mounted = Records::kept( *parts_.database );
      load();
      follow( mounted );
   }
   ~Impl() override {
      series_.allDue();
      if( anythingNoted() ) commit( Take::passingToo );
      top_.clear();
   }

   bool keep() {
      if( !trouble_.empty() ) return false;
      return !anythingNoted() || commit( Take::passingToo );
   }
   std::string const & trouble() const { return trouble_; }

 private:
   using Kind = std::pair<uint8_t, uint16_t>;  // and the VLAN id
   // In a row, as there is one for each interface. Many are added at a time, never one by one.
   using Kinds = boost::container::flat_map<Lumo::IntfId, Kind>;
   using Declared = std::unordered_map<Lumo::IntfId, Kind>;
   using Followers = boost::intrusive::list<Follower, boost::intrusive::constant_time_size<false>>;
   using Noted = Follower::Noted;
   // A kept directory, and who follows it.
   struct Top {
      Top( FollowerListener & listener, std::string path, Kel::Ptr<Kel::Entity> const & entity )
         : mount{ listener, std::move( path ) }, follower( mount, entity ) {}

      Follower::Mount const mount;
      Follower follower;
   };
   // What a transaction takes along.
   enum class Take { noted, passingToo };

   class Timer final : public Kel::Clock::NotifieeConst {
    public:
      Timer( Impl & owner, void ( Impl::*handle )() )
         : NotifieeConst( Kel::activityLoop().clock() ), owner_( owner ), handle_( handle ) {}
      void onTimeMin() override { ( owner_.*handle_ )(); }

    private:
      Impl & owner_;
      void ( Impl::*const handle_ )();
   };

   void load();
   void loadKinds();
   void follow( std::vector<std::string> const & mounted );

   void onTurnEnd() override;
   void handlePassing();
   void handleRetry();
   void followed( Follower & follower ) override;
   void changed( Follower & follower, Kel::AttributeInfo const & attribute ) override;
   void forgotten( Follower & follower ) override;
   void gone( std::string const & path ) override;

   void note( Follower & follower, Noted how );
   [[nodiscard]] bool anythingNoted() const;
   bool commit( Take take );
   void write( Take take, Store::Transaction & to, Declared & declared );
   static void writeRow( Follower const & follower, Store::Transaction & to );
   void writeKinds( Follower const & follower, Store::Transaction & to, Declared & declared ) const;
   void writeKind( std::string const & name, Store::Transaction & to, Declared & declared ) const;
   void failed( std::string const & why );
   void succeeded( Declared const & declared, Take take );

   Parts const parts_;
   std::unordered_set<std::string> restored_;  // paths of rows whose record is not followed yet
   Kinds kinds_;                               // as they are in the store
   Followers noted_;                           // to be on disk at the end of the turn
   Followers passing_;                         // to be on disk when it is due
   Passing numbers_;
   std::set<std::string> deleted_;  // paths
   SeriesTurns series_;
   std::string trouble_;
   double pause_ = 0;  // s, before it was tried last
   Timer passingDue_;
   Timer retryDue_;
   std::list<Top> top_;
};

// What was kept

void Keeper::Impl::load() {
   // First, as the records say interfaces by name, and whoever meets one asks for its kind.
   loadKinds();
   auto const fitting = [this]( std::string const & path, auto const & restore ) {
      try {
         restore();
      } catch( std::exception const & error ) {
         throw StoreError( StoreError::Kind::damaged, parts_.store.path(),
                           "is damaged: the row \"" + path + "\" fits no record: " + error.what() );
      }
   };
   for( Store::Row const & row : parts_.store.rows() ) {
      fitting( row.path, [&] { Records::restore( *parts_.database, row ); } );
      restored_.insert( row.path );
   }
   parts_.store.eachSeries( [&]( std::string const & path, std::string const & bytes ) {
      fitting( path, [&] { Records::restoreSeries( *parts_.database, path, bytes ); } );
   } );
}

void Keeper::Impl::loadKinds() {
   Declared declared;
   for( auto const & [name, kind, vlanId] : parts_.store.declared() ) {
      if( name.empty() || !Lumo::enumName( static_cast<Lumo::IntfKind>( kind ) ) ) {
         throw StoreError(
            StoreError::Kind::damaged, parts_.store.path(),
            "is damaged: it says of the interface \"" + name + "\" that it is of kind " + std::to_string( kind ) );
      }
      declared[Lumo::IntfId::declare( name, static_cast<Lumo::IntfKind>( kind ), vlanId )] = { kind, vlanId };
   }
   kinds_.insert( declared.begin(), declared.end() );
}

void Keeper::Impl::follow( std::vector<std::string> const & mounted ) {
   for( std::string const & path : mounted ) {
      top_.emplace_back( *this, Records::rowPath( path ), parts_.database->getEntity( path ) );
   }
   restored_.clear();
}

// What has changed

void Keeper::Impl::followed( Follower & follower ) {
   bool const inStore = !restored_.empty() && restored_.erase( follower.path() ) > 0;
   series_.add( follower, inStore );
   if( inStore || !Records::hasRow( follower.entity(), follower.in() == Follower::In::database ) ) return;
   note( follower, Noted::now );
   due();
}

void Keeper::Impl::changed( Follower & follower, Kel::AttributeInfo const & attribute ) {
   if( attribute.passing() ) {
      note( follower, Noted::passing );
      if( passingDue_.timeMin() == Kel::never ) passingDue_.timeMinIs( Kel::now() + passingSeconds );
      return;
   }
   bool const ofWindow = dynamic_cast<Evidence::Window const *>( &follower.entity() ) != nullptr;
   if( ofWindow && ( attribute.name() == "stageRun" || attribute.name() == "outcome" ) ) series_.windowDue( follower );
   note( follower, Noted::now );
   due();
}

void Keeper::Impl::note( Follower & follower, Noted how ) {
   if( follower.noted() >= how ) return;
   follower.FollowerHook::unlink();
   ( how == Noted::now ? noted_ : passing_ ).push_back( follower );
   follower.notedIs( how );
}

void Keeper::Impl::forgotten( Follower & follower ) { series_.remove( follower ); }

void Keeper::Impl::gone( std::string const & path ) {
   deleted_.insert( path );
   due();
}

// Writing

bool Keeper::Impl::anythingNoted() const {
   return !noted_.empty() || !passing_.empty() || !deleted_.empty() || !series_.due().empty();
}

void Keeper::Impl::onTurnEnd() {
   if( trouble_.empty() ) commit( Take::noted );
}

void Keeper::Impl::handlePassing() {
   series_.someDue( Kel::now() );
   if( trouble_.empty() && anythingNoted() ) commit( Take::passingToo );
}

void Keeper::Impl::handleRetry() {
   if( commit( Take::passingToo ) && parts_.writable ) parts_.writable();
}

bool Keeper::Impl::commit( Take take ) {
   Declared declared;
   try {
      parts_.store.transact( [&]( Store::Transaction & to ) { write( take, to, declared ); } );
   } catch( StoreError const & error ) {
      failed( error.what() );
      return false;
   }
   succeeded( declared, take );
   return true;
}

void Keeper::Impl::write( Take take, Store::Transaction & to, Declared & declared ) {
   // First, as something else may be at such a path by now.
   for( std::string const & path : deleted_ ) to.del( path );
   std::vector<Passing::Monitor const *> monitors;
   for( Follower const & follower : noted_ ) {
      writeRow( follower, to );
      writeKinds( follower, to, declared );
      if( auto const * const monitor = Passing::monitor( follower.entity() ) ) monitors.push_back( monitor );
   }
   if( take == Take::passingToo ) {
      for( Follower const & follower : passing_ ) {
         auto const * const monitor = Passing::monitor( follower.entity() );
         monitor ? monitors.push_back( monitor ) : writeRow( follower, to );
      }
   }
   for( Follower const * const follower : series_.due() ) {
      // An empty one says no more than none.
      std::string const bytes = Records::seriesOf( follower->entity() );
      if( !bytes.empty() ) to.putSeries( follower->path(), bytes );
   }
   numbers_.write( *parts_.database, monitors, to );
   to.momentIs( { parts_.boot, Kel::now(), parts_.clockShift, parts_.wallTime() } );
}

void Keeper::Impl::writeRow( Follower const & follower, Store::Transaction & to ) {
   auto value = Records::rowValue( follower.entity(), follower.in() == Follower::In::dir );
   to.put( follower.path(), RowText::of( Kel::Value( Kel::Value::Content( std::move( value ) ) ) ) );
}

// Of the interfaces that its row mentions.
void Keeper::Impl::writeKinds( Follower const & follower, Store::Transaction & to, Declared & declared ) const {
   Kel::Entity const & e = follower.entity();
   if( follower.intfNamed() ) writeKind( e.name(), to, declared );
   for( auto const & attribute : e.kelTypeInfo().attributes() ) {
      if( !Records::inRow( *attribute ) || attribute->keyTypeName() != "Lumo::IntfId" ) continue;
      for( std::string const & key : attribute->keys( e ) ) writeKind( key, to, declared );
   }
}

// Unless it is in the store as it is now. A sub-interface whose name says what it divides needs none, and would forget
// that by it.
void Keeper::Impl::writeKind( std::string const & name, Store::Transaction & to, Declared & declared ) const {
   auto const intf = Lumo::IntfId::known( name );
   if( !intf || intf->empty() || intf->baseKind() != intf->kind() ) return;
   Kind const kind{ static_cast<uint8_t>( intf->kind() ), vlanIdOf( *intf ) };
   auto const stored = kinds_.find( *intf );
   if( stored != kinds_.end() && stored->second == kind ) return;
   if( declared.emplace( *intf, kind ).second ) to.declare( { name, kind.first, kind.second } );
}

void Keeper::Impl::failed( std::string const & why ) {
   if( std::exchange( trouble_, why ) != why ) parts_.tell( why );
   pause_ = std::clamp( 2 * pause_, 1.0, longestPause );
   retryDue_.timeMinIs( Kel::now() + pause_ );
}

void Keeper::Impl::succeeded( Declared const & declared, Take take ) {
   auto const isWritten = []( Follower * follower ) { follower->notedIs( Noted::nothing ); };
   noted_.clear_and_dispose( isWritten );
   if( take == Take::passingToo ) passing_.clear_and_dispose( isWritten );
   numbers_.written();
   deleted_.clear();
   series_.written();
   if( !declared.empty() ) {
      // Where both have an interface, that which was there first stays.
      Kinds now( declared.begin(), declared.end() );
      now.insert( boost::container::ordered_unique_range, kinds_.begin(), kinds_.end() );
      kinds_ = std::move( now );
   }
   pause_ = 0;
   if( std::exchange( trouble_, "" ).empty() ) return;
   parts_.tell( parts_.store.path() + ": is written again, and all is in it that came meanwhile" );
}

// The outside

double Keeper::clockShift( Store::Moment const & kept, std::string const & boot, double bootTime, double wallTime ) {
   if( kept.boot.empty() ) return 0;
   if( kept.boot == boot ) return kept.shift;
   return kept.now + std::max( wallTime - kept.wallTime, 0.0 ) - bootTime;
}

Keeper::Keeper( Parts parts ) : impl_( std::make_unique<Impl>( std::move( parts ) ) ) {}
Keeper::~Keeper() = default;

bool Keeper::keep() { return impl_->keep(); }
std::string const & Keeper::trouble() const { return impl_->trouble(); }

}  // namespace Host
