// The rule of delivery, clause by clause.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>

#include "KelSamples.h"

namespace {

using Sample::Directory;
using Sample::Mood;
using Sample::Record;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Story = std::vector<std::string>;

// A reactor that writes down what it hears and may do something about it.
class Listener final : public Record::Notifiee {
 public:
   Listener( std::string name, Kel::Ptr<Record> const & record, Story & story )
      : name_( std::move( name ) ), story_( story ) {
      notifierIs( record );
   }
   Listener( std::string name, Kel::Ptr<Record> const & record, Story & story, Kel::PtrInterface const & owner )
      : Record::Notifiee( owner ), name_( std::move( name ) ), story_( story ) {
      notifierIs( record );
   }
   void onMood() override { heard( enumName( notifier()->mood() ) ); }
   void onLabel() override { heard( notifier()->label().str() ); }
   void onUnit( Kel::String8 unit ) override {
      heard( unit.str() + ( notifier()->unit( unit ) ? " is there" : " is gone" ) );
   }
   void onUnitkelImmediate() override { heard( "all units" ); }
   void onPortkelImmediate() override { heard( "all ports" ); }

   std::function<void()> act = [] {};

 private:
   void heard( std::string const & what ) {
      story_.push_back( name_ + ": " + what );
      auto const doing = act;  // the action may destroy this reactor
      doing();
   }

   std::string name_;
   Story & story_;
};

class Notification : public ::testing::Test {
 protected:
   std::unique_ptr<Listener> listener( char const * name ) {
      return std::make_unique<Listener>( name, record_, story_ );
   }

   Kel::Ptr<Record> record_{ new Record( "r" ) };
   Story story_;
};

TEST_F( Notification, goesToAllInOrderOfRegistration ) {
   auto const a = listener( "a" ), b = listener( "b" ), c = listener( "c" );
   record_->moodIs( Mood::busy );
   EXPECT_THAT( story_, ElementsAre( "a: busy", "b: busy", "c: busy" ) );
   story_.clear();
   b->notifierIs( nullptr );
   b->notifierIs( record_ );
   record_->moodIs( Mood::calm );
   EXPECT_THAT( story_, ElementsAre( "a: calm", "c: calm", "b: calm" ) );
}

TEST_F( Notification, goesToWhoeverIsLeftInTheirOrder ) {
   auto a = listener( "a" ), b = listener( "b" ), c = listener( "c" );
   a.reset();
   record_->moodIs( Mood::busy );
   c.reset();
   record_->moodIs( Mood::calm );
   auto const d = listener( "d" );
   record_->moodIs( Mood::odd );
   b.reset();
   record_->moodIs( Mood::busy );
   EXPECT_THAT( story_, ElementsAre( "b: busy", "c: busy", "b: calm", "b: odd", "d: odd", "d: busy" ) );
}

TEST_F( Notification, ofAnEqualValueIsNotMade ) {
   auto const a = listener( "a" );
   record_->moodIs( Mood::calm );
   record_->unitIs( "u", true );
   record_->unitIs( "u", true );
   record_->unitDel( "absent" );
   EXPECT_THAT( story_, ElementsAre( "a: u is there" ) );
}

TEST_F( Notification, ofAKeySeesTheCollectionAlreadyChanged ) {
   auto const a = listener( "a" );
   record_->unitIs( "u", true );
   record_->unitIs( "u", false );
   record_->unitDel( "u" );
   EXPECT_THAT( story_, ElementsAre( "a: u is there", "a: u is there", "a: u is gone" ) );
}

TEST_F( Notification, ofANestedChangeIsDeliveredAtOnce ) {
   auto const a = listener( "a" ), b = listener( "b" );
   a->act = [&] { record_->labelIs( "nested" ); };
   record_->moodIs( Mood::busy );
   EXPECT_THAT( story_, ElementsAre( "a: busy", "a: nested", "b: nested", "b: busy" ) );
}

TEST_F( Notification, doesNotReachAReactorRegisteredMeanwhile ) {
   auto const a = listener( "a" ), b = listener( "b" );
   std::unique_ptr<Listener> late;
   a->act = [&] {
      if( !late ) late = listener( "late" );
   };
   record_->moodIs( Mood::busy );
   EXPECT_THAT( story_, ElementsAre( "a: busy", "b: busy" ) );
   record_->moodIs( Mood::odd );
   EXPECT_EQ( story_.back(), "late: odd" );
}

// What silences a reactor in the middle of a delivery, whichever reactor it is.
struct Silencing {
   char const * what;
   void ( *silence )( std::unique_ptr<Listener> & );
};

class SilencedMeanwhile : public Notification, public ::testing::WithParamInterface<Silencing> {};

TEST_P( SilencedMeanwhile, isNotCalledAfterwards ) {
   for( int const silenced : { 0, 1, 2, 3 } ) {
      story_.clear();
      record_->moodIs( Mood::calm );
      std::vector<std::unique_ptr<Listener>> all;
      for( char const * name : { "a", "b", "c", "d" } ) all.push_back( listener( name ) );
      all[1]->act = [&] {
         if( all[static_cast<std::size_t>( silenced )] )
            GetParam().silence( all[static_cast<std::size_t>( silenced )] );
      };
      record_->moodIs( Mood::busy );
      Story expected{ "a: busy", "b: busy" };
      if( silenced != 2 ) expected.push_back( "c: busy" );
      if( silenced != 3 ) expected.push_back( "d: busy" );
      EXPECT_EQ( story_, expected ) << GetParam().what << " " << silenced;
   }
}

INSTANTIATE_TEST_SUITE_P(
   Ways, SilencedMeanwhile,
   ::testing::Values( Silencing{ "detached", []( std::unique_ptr<Listener> & l ) { l->notifierIs( nullptr ); } },
                      Silencing{ "switchedOff", []( auto & l ) { l->hasNotificationActiveIs( false ); } },
                      Silencing{ "zombie", []( auto & l ) { l->kelDoZombieReactors( true ); } },
                      Silencing{ "destroyed", []( auto & l ) { l.reset(); } } ),
   []( auto const & tested ) { return tested.param.what; } );

TEST_F( Notification, survivesTheLossOfSeveralNeighboursAtOnce ) {
   auto a = listener( "a" ), b = listener( "b" ), c = listener( "c" ), d = listener( "d" );
   a->act = [&] {
      c.reset();
      d.reset();
      a.reset();
   };
   record_->moodIs( Mood::busy );
   EXPECT_THAT( story_, ElementsAre( "a: busy", "b: busy" ) );
}

TEST_F( Notification, ofAnOuterChangeSkipsWhatANestedOneDestroyed ) {
   auto const a = listener( "a" );
   auto b = listener( "b" );
   auto const c = listener( "c" );
   a->act = [&] { record_->labelIs( "nested" ); };
   c->act = [&] { b.reset(); };
   record_->moodIs( Mood::busy );
   EXPECT_THAT( story_, ElementsAre( "a: busy", "a: nested", "b: nested", "c: nested", "c: busy" ) );
}

TEST_F( Notification, keepsTheEntityAliveToItsEnd ) {
   auto a = listener( "a" );
   auto b = listener( "b" );
   a->act = [&] {
      record_ = nullptr;
      a->notifierIs( nullptr );
   };
   Record & dropped = *record_;
   b->act = [&] { b->notifierIs( nullptr ); };  // the last reference but the delivery's own
   dropped.moodIs( Mood::busy );
   EXPECT_THAT( story_, ElementsAre( "a: busy", "b: busy" ) );
}

TEST_F( Notification, aReactorMovedToAnotherRecordHearsThatOne ) {
   Kel::Ptr<Record> const other( new Record( "other" ) );
   auto const a = listener( "a" ), b = listener( "b" );
   a->act = [&] { b->notifierIs( other ); };
   record_->moodIs( Mood::busy );
   other->moodIs( Mood::odd );
   EXPECT_THAT( story_, ElementsAre( "a: busy", "b: odd" ) );
}

TEST_F( Notification, isSilentAsLongAsTheOwnerIs ) {
   Kel::Ptr<Record> const owner( new Record( "owner" ) );
   owner->hasNotificationActiveIs( false );
   Listener const a( "a", record_, story_, *owner );
   record_->moodIs( Mood::busy );
   EXPECT_THAT( story_, IsEmpty() );
   owner->hasNotificationActiveIs( true );
   record_->moodIs( Mood::calm );
   owner->kelDoZombieReactors( true );
   record_->moodIs( Mood::odd );
   EXPECT_THAT( story_, ElementsAre( "a: calm" ) );
}

// With members around it, so that where it stands in its machine is not where the machine begins.
struct Caretaker final : Kel::PtrInterface {
   class KelRecord final : public Kel::OwnedBy<Caretaker, Record::Notifiee> {
    public:
      using OwnedBy::OwnedBy;
      void onMood() override { owner().heard.push_back( notifier()->mood() ); }
   };
   std::vector<Mood> heard;
   KelRecord record{ *this };
};

TEST_F( Notification, ofAMachinesReactorReachesThatMachine ) {
   Caretaker caretaker;
   caretaker.record.notifierIs( record_ );
   record_->moodIs( Mood::busy );
   caretaker.hasNotificationActiveIs( false );
   record_->moodIs( Mood::calm );
   EXPECT_THAT( caretaker.heard, ElementsAre( Mood::busy ) );
}

TEST_F( Notification, ofAWholeCollectionIsMadeOnceAtAttachment ) {
   auto const early = listener( "early" );
   EXPECT_THAT( story_, IsEmpty() );  // nothing there yet
   record_->unitIs( "u", true );
   story_.clear();
   auto const late = listener( "late" );
   EXPECT_THAT( story_, ElementsAre( "late: all units" ) );
   Kel::Ptr<Record> const owner( new Record( "owner" ) );
   owner->hasNotificationActiveIs( false );
   Listener const silent( "silent", record_, story_, *owner );
   owner->hasNotificationActiveIs( true );
   EXPECT_EQ( story_.size(), 1u );  // under construction it reads the present state itself
}

TEST_F( Notification, handsOverOneCollectionAfterTheOther ) {
   record_->unitIs( "u", true );
   record_->portIs( 7, true );
   Kel::Ptr<Record> const other( new Record( "other" ) );
   other->portIs( 8, true );
   std::function<void( std::unique_ptr<Listener> & )> atFirst;
   auto const attach = [&] {
      story_.clear();
      auto const bare = std::make_unique<std::unique_ptr<Listener>>( listener( "a" ) );
      ( *bare )->notifierIs( nullptr );
      story_.clear();
      ( *bare )->act = [&] {
         if( auto const act = std::exchange( atFirst, {} ) ) act( *bare );
      };
      ( *bare )->notifierIs( record_ );
      return story_;
   };
   EXPECT_THAT( attach(), ElementsAre( "a: all units", "a: all ports" ) );
   atFirst = []( auto & l ) { l->notifierIs( nullptr ); };
   EXPECT_THAT( attach(), ElementsAre( "a: all units" ) );
   atFirst = []( auto & l ) { l->kelDoZombieReactors( true ); };
   EXPECT_THAT( attach(), ElementsAre( "a: all units" ) );
   atFirst = []( auto & l ) { l.reset(); };
   EXPECT_THAT( attach(), ElementsAre( "a: all units" ) );
   atFirst = [&]( auto & l ) { l->notifierIs( other ); };
   EXPECT_THAT( attach(), ElementsAre( "a: all units", "a: all ports" ) );  // the other's ports, once
   // Moved away and back again it is attached anew, and handed everything by that.
   atFirst = [&]( auto & l ) {
      l->notifierIs( nullptr );
      l->notifierIs( record_ );
   };
   EXPECT_THAT( attach(), ElementsAre( "a: all units", "a: all units", "a: all ports" ) );
}

// A machine as the plug-in has them: counted, with a reactor for a member.
struct Machine final : Kel::PtrInterface {
   Machine( Kel::Ptr<Record> const & record, Story & s ) : story( s ), reactor( "m", record, s, *this ) {}
   ~Machine() override { story.push_back( "freed" ); }
   Story & story;
   Listener reactor;
};

TEST_F( Notification, freesNothingBeforeTheOutermostHandlerReturns ) {
   Kel::Ptr<Machine> machine( new Machine( record_, story_ ) );
   machine->reactor.act = [&] {
      if( !machine ) return;
      Machine & dropped = *machine;
      machine = nullptr;
      EXPECT_FALSE( dropped.inService() );
      record_->labelIs( "nested" );  // silent from the moment at which it was dropped
      story_.push_back( "still here" );
   };
   record_->moodIs( Mood::busy );
   EXPECT_THAT( story_, ElementsAre( "m: busy", "still here", "freed" ) );
}

TEST_F( Notification, ofAnEntityThatItsWatcherDropsGoesOn ) {
   struct Drop final : Kel::Watcher {
      explicit Drop( Kel::Ptr<Record> & r ) : record( r ) {}
      void onAttribute( Kel::Entity const &, Kel::AttributeInfo const &, std::string const * ) override {
         record = nullptr;
      }
      Kel::Ptr<Record> & record;
   };
   Drop drop( record_ );
   record_->watcherIs( drop );
   Record & dropped = *record_;
   dropped.moodIs( Mood::busy );
   EXPECT_FALSE( record_ );
}

// Follows every change of a record by name.
class Log final : public Kel::Watcher {
 public:
   Log( Record const & record, Story & story ) : record_( record ), story_( story ) { record_.watcherIs( *this ); }
   ~Log() override { record_.watcherDel( *this ); }
   void onAttribute( Kel::Entity const &, Kel::AttributeInfo const & attribute, std::string const * key ) override {
      story_.push_back( "log: " + attribute.name() + ( key ? "/" + *key : "" ) );
   }

 private:
   Record const & record_;
   Story & story_;
};

TEST_F( Notification, reachesWatchersFirstAndForEveryAttribute ) {
   auto const a = listener( "a" );
   a->act = [&] { record_->totalInc( 2 ); };
   Log const log( *record_, story_ );
   record_->quietIs( 1.5 );
   record_->moodIs( Mood::busy );
   record_->portIs( 7, true );
   EXPECT_THAT( story_, ElementsAre( "log: quiet", "log: mood", "a: busy", "log: total", "log: port/7" ) );
}

// One that has noted that a record changes with every sample does not hear so again until it asks, and nobody else
// hears less for that.
TEST_F( Notification, ofPassingAttributesSparesWatchersThatStopTheirEars ) {
   struct Ear final : Kel::Watcher {
      Ear( char const * n, Record const & r, Story & s ) : name( n ), record( r ), story( s ) {
         record.watcherIs( *this );
      }
      ~Ear() override { record.watcherDel( *this ); }
      void onAttribute( Kel::Entity const &, Kel::AttributeInfo const & attribute, std::string const * ) override {
         story.push_back( name + ": " + attribute.name() );
         if( attribute.passing() && once ) record.watcherHearsPassingIs( *this, false );
      }
      std::string const name;
      Record const & record;
      Story & story;
      bool once = false;
   };
   auto const samples = [&] {
      story_.clear();
      for( int i = 0; i < 2; ++i ) record_->totalInc( 1 );
      record_->quietIs( record_->total() );
      record_->portIs( record_->total(), true );
      return std::exchange( story_, {} );
   };
   std::optional<Ear> keeper( std::in_place, "keeper", *record_, story_ );
   keeper->once = true;
   EXPECT_THAT( samples(), ElementsAre( "keeper: total", "keeper: quiet", "keeper: port" ) );
   {
      Ear const api( "api", *record_, story_ );
      EXPECT_THAT( samples(), ElementsAre( "api: total", "api: total", "keeper: quiet", "api: quiet", "keeper: port",
                                           "api: port" ) );
   }
   EXPECT_THAT( samples(), ElementsAre( "keeper: quiet", "keeper: port" ) );
   record_->watcherHearsPassingIs( *keeper, true );
   EXPECT_THAT( samples(), ElementsAre( "keeper: total", "keeper: quiet", "keeper: port" ) );
   // What the one leaves that has stopped its ears does not make the next deaf.
   keeper.reset();
   Ear const later( "later", *record_, story_ );
   EXPECT_THAT( samples(), ElementsAre( "later: total", "later: total", "later: quiet", "later: port" ) );
}

TEST_F( Notification, ofADirectoryHandsOverCompleteRecords ) {
   struct Watch final : Directory::NotifieeConst {
      Watch( Kel::Ptr<Directory const> const & directory, Story & s ) : story( s ) { notifierIs( directory ); }
      void onRecord( Kel::String8 key ) override {
         auto const r = notifier()->record( key );
         story.push_back( key.str() + ": " +
                          ( r ? r->label().str() + ", " + std::to_string( r->units() ) + " units" : "gone" ) );
      }
      Story & story;
   };
   Kel::Ptr<Directory> const directory( new Directory( "d" ) );
   Watch const watch( directory, story_ );
   using Kel::Value;
   Value::Object const units{ { "u1", Value( Value::Content( true ) ) } };
   Value::Object const whole{ { "unit", Value( Value::Content( units ) ) },
                              { "label", Value( Value::Content( std::string( "set" ) ) ) } };
   // Scalars are set before the record is inserted and its own collections after, whatever the order of writing.
   directory->kelTypeInfo().attribute( "record" )->entryIs( *directory, "r", Value( Value::Content( whole ) ) );
   directory->recordDel( "r" );
   EXPECT_THAT( story_, ElementsAre( "r: set, 0 units", "r: gone" ) );
}

}  // namespace
