// Keyed collections against a plain model, and walks that hold while entries come and go.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <optional>
#include <random>

#include "KelSamples.h"
#include "kel/RbTreeMap.h"

namespace {

using Map = Kel::HashMap<int, uint32_t>;

// What HashMap promises, done in the simplest way: entries in order of arrival, walks as positions that removals
// correct.
struct Model {
   std::vector<std::pair<uint32_t, int>> entries;

   auto find( uint32_t key ) {
      return std::find_if( entries.begin(), entries.end(), [&]( auto const & e ) { return e.first == key; } );
   }
};

// A walk of both at once; `next` is the key that the model says comes next, none at the end.
struct Walk {
   explicit Walk( Map const & map, Model const & model ) : cursor( std::make_unique<Map::Cursor>( map ) ) {
      if( !model.entries.empty() ) at = model.entries.front().first;
   }
   std::unique_ptr<Map::Cursor> cursor;
   std::optional<uint32_t> at;
   bool moved = false;  // the entry it stood on went, so it stands on the successor already
};

class HashMapModel : public ::testing::Test {
 protected:
   std::optional<uint32_t> successor( uint32_t key ) {
      auto const i = model_.find( key );
      return i + 1 == model_.entries.end() ? std::nullopt : std::optional( ( i + 1 )->first );
   }

   void remove( uint32_t key ) {
      for( Walk & walk : walks_ ) {
         if( walk.at != key ) continue;
         walk.at = successor( key );
         walk.moved = true;
      }
      map_.take( key );
      model_.entries.erase( model_.find( key ) );
   }

   // An entry that comes is the next of a walk whose entry went as the last one.
   void add( uint32_t key, int value ) {
      map_.insert( key, value );
      model_.entries.emplace_back( key, value );
      for( Walk & walk : walks_ ) {
         if( !walk.at && walk.moved ) walk.at = key;
      }
   }

   void step( Walk & walk ) {
      if( !walk.at && !walk.moved ) return;
      if( !walk.moved ) walk.at = successor( *walk.at );
      walk.moved = false;
      ++*walk.cursor;
   }

   void expectSame() {
      ASSERT_EQ( map_.size(), model_.entries.size() );
      auto expected = model_.entries.begin();
      for( auto [key, value] : Map::Iterator<>( map_ ) ) {
         ASSERT_EQ( std::make_pair( key, value ), *expected );
         ++expected;
      }
      for( Walk const & walk : walks_ ) {
         ASSERT_EQ( static_cast<bool>( *walk.cursor ), walk.at.has_value() );
         if( walk.at ) {
            ASSERT_EQ( walk.cursor->key(), *walk.at );
         }
      }
   }

   Map map_;
   Model model_;
   std::list<Walk> walks_;
};

TEST_F( HashMapModel, randomOperationsWithWalksUnderWay ) {
   auto const seed = std::random_device{}();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   auto const chance = [&]( unsigned n ) { return static_cast<unsigned>( random() % n ); };
   for( unsigned round = 0; round < 20'000; ++round ) {
      // The size swings between nothing and well beyond the linear search.
      uint32_t const key = chance( round % 4000 < 2000 ? 100 : 8 );
      auto const present = model_.find( key );
      switch( chance( 6 ) ) {
         case 0:
         case 1:
            if( present != model_.entries.end() ) break;
            add( key, static_cast<int>( round ) );
            break;
         case 2:
            if( present != model_.entries.end() ) remove( key );
            break;
         case 3:
            if( walks_.size() < 4 ) walks_.emplace_back( map_, model_ );
            break;
         case 4:
            if( !walks_.empty() && chance( 8 ) == 0 )
               walks_.erase( std::next( walks_.begin(), chance( 100 ) % walks_.size() ) );
            break;
         default:
            for( Walk & walk : walks_ ) step( walk );
      }
      int const * const found = map_.find( key );
      auto const expected = model_.find( key );
      ASSERT_EQ( found != nullptr, expected != model_.entries.end() );
      if( found ) {
         ASSERT_EQ( *found, expected->second );
      }
      if( round % 50 == 0 ) {
         ASSERT_NO_FATAL_FAILURE( expectSame() );
      }
   }
}

TEST( Collection, aWalkMayDeleteWhatItStandsOnAndWhatComesNext ) {
   Kel::Ptr<Sample::Record> const record( new Sample::Record( "r" ) );
   for( uint32_t port = 0; port < 20; ++port ) record->portIs( port, true );
   std::vector<uint32_t> visited;
   for( auto [port, present] : record->portIterator() ) {
      visited.push_back( port );
      record->portDel( port );
      record->portDel( port + 1 );
      if( port == 4 ) record->portIs( 99, true );   // added during the walk: visited by it
      if( port == 99 ) record->portIs( 77, true );  // also when the last entry has just gone from under it
   }
   EXPECT_THAT( visited, ::testing::ElementsAre( 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 99, 77 ) );
   EXPECT_EQ( record->ports(), 0u );
}

TEST( Collection, deletingAllTellsOfEachKey ) {
   struct Watch final : Sample::Record::NotifieeConst {
      explicit Watch( Kel::Ptr<Sample::Record const> const & record ) { notifierIs( record ); }
      void onPort( uint32_t port ) override { story.emplace_back( port, notifier()->ports() ); }
      std::vector<std::pair<uint32_t, std::size_t>> story;
   };
   Kel::Ptr<Sample::Record> const record( new Sample::Record( "r" ) );
   for( uint32_t port : { 3u, 1u, 2u } ) record->portIs( port, true );
   Watch const watch( record );
   record->portDelAll();
   EXPECT_THAT( watch.story, ::testing::ElementsAre( std::pair( 3u, 2u ), std::pair( 1u, 1u ), std::pair( 2u, 0u ) ) );
}

// A child that says when it is taken apart and when it goes.
class Child final : public Kel::Entity {
   KEL_MACHINE( Child, "Sample::Child", uint32_t, number )
   KEL_ENTITY_END

   Child( uint32_t number, std::vector<std::string> * story ) : number_( number ), story_( story ) {}
   ~Child() override { story_->push_back( "gone " + name() ); }
   void prepareToDie() override { story_->push_back( "torn down " + name() ); }

 private:
   std::vector<std::string> * story_;
};
KEL_TYPE( Child )

class Parent final : public Kel::Entity {
   KEL_ENTITY( Parent, "Sample::Parent", Kel::Name, parentName )
   KEL_CHILDREN( Child, uint32_t, child, onChild )
   KEL_ENTITY_END
};
KEL_TYPE( Parent )

TEST( Children, areTakenApartBeforeTheLastReferenceGoes ) {
   using ::testing::ElementsAre;
   struct Watch final : Parent::NotifieeConst {
      Watch( Kel::Ptr<Parent const> const & parent, std::vector<std::string> & s ) : story( s ) {
         notifierIs( parent );
      }
      void onChild( uint32_t key ) override {
         story.push_back( std::to_string( key ) + ( notifier()->child( key ) ? " is there" : " is out" ) );
      }
      std::vector<std::string> & story;
   };
   std::vector<std::string> story;
   Kel::Ptr<Parent> const parent( new Parent( "p" ) );
   Watch const watch( parent, story );
   auto const made = parent->childIs( 1u, &story );
   EXPECT_EQ( parent->childIs( 1u, &story ), made );  // the existing one, unchanged
   EXPECT_THAT( story, ElementsAre( "1 is there" ) );
   story.clear();
   parent->childIs( Kel::Ptr<Child>( new Child( 1, &story ) ) );
   EXPECT_THAT( story, ElementsAre( "torn down 1", "1 is there" ) );
   story.clear();
   parent->childDel( 1u );
   parent->childDel( 1u );
   EXPECT_THAT( story, ElementsAre( "torn down 1", "1 is out", "gone 1" ) );
}

TEST( Collection, deletingAllSurvivesTheLossOfItsOwner ) {
   struct Drop final : Kel::Watcher {
      void onAttribute( Kel::Entity const &, Kel::AttributeInfo const &, std::string const * ) override {
         ++heard;
         record = nullptr;
      }
      Kel::Ptr<Sample::Record> record{ new Sample::Record( "r" ) };
      int heard = 0;
   };
   Drop drop;
   Sample::Record & record = *drop.record;
   for( uint32_t port : { 3u, 1u, 2u } ) record.portIs( port, true );
   record.watcherIs( drop );  // which the record forgets at its end
   record.portDelAll();
   EXPECT_EQ( drop.heard, 3 );
}

TEST( Collection, refusesAChildThatIsNone ) {
   Kel::Ptr<Sample::Directory> const directory( new Sample::Directory( "d" ) );
   try {
      directory->recordIs( Kel::Ptr<Sample::Record>() );
      FAIL();
   } catch( Kel::RangeError const & error ) {
      EXPECT_STREQ( error.what(), "null _record parameter to mutator for Sample::Directory::record not allowed\"" );
   }
   EXPECT_EQ( directory->records(), 0u );
}

TEST( RbTreeMap, resumesAtABookmarkWhateverHappenedMeanwhile ) {
   Kel::RbTreeMap<bool, int> map;
   for( int const key : { 5, 1, 9, 3 } ) EXPECT_TRUE( map.insert( key, true ) );
   EXPECT_FALSE( map.insert( 5, true ) );
   EXPECT_EQ( map.firstKey(), 1 );
   EXPECT_EQ( map.keyFrom( 3 ), 3 );
   EXPECT_EQ( map.keyAfter( 3 ), 5 );
   map.erase( 5 );
   EXPECT_EQ( map.keyFrom( 5 ), 9 );
   EXPECT_EQ( map.keyAfter( 9 ), std::nullopt );
}

}  // namespace
