// What one notification costs: an attribute is set to another value and its reactors hear of it, with 1 and with 4 of
// them.
//
// Two other ways of doing that work stand beside it. `PlainList` is the limit: a list linked through its members, one
// virtual call for each, and none of the promises that kel/Notifiee.h makes about reactors that come, go and fall
// silent during a delivery. `Signal` is a general signal library, without its locks. Every handler reads the value
// from what changed and puts it into a number of its own.
#include <benchmark/benchmark.h>

#include <boost/signals2/dummy_mutex.hpp>
#include <boost/signals2/signal_type.hpp>
#include <memory>
#include <vector>

#include "kel/Attributes.h"

namespace {

// Handlers of two kinds take turns, so that no compiler can guess which one a call reaches.
template<class Sum, class Mix, class Source, class Handler>
std::vector<std::unique_ptr<Handler>> handlers( Source & source, std::vector<uint64_t> & heard ) {
   std::vector<std::unique_ptr<Handler>> all;
   for( std::size_t i = 0; i < heard.size(); ++i ) {
      if( i % 2 == 0 ) {
         all.push_back( std::make_unique<Sum>( source, heard[i] ) );
      } else {
         all.push_back( std::make_unique<Mix>( source, heard[i] ) );
      }
   }
   return all;
}

class Record final : public Kel::Entity {
   KEL_ENTITY( Record, "Bench::Record", Kel::Name, recordName )
   KEL_ATTR_NOTIFY( uint64_t, value, onValue )
   KEL_ENTITY_END
};
KEL_TYPE( Record )

class Entity {
 public:
   explicit Entity( std::size_t reactors )
      : heard_( reactors ),
        reactors_( handlers<Sum, Mix, Kel::Ptr<Record> const, Record::NotifieeConst>( record_, heard_ ) ) {}

   void valueIs( uint64_t value ) { record_->valueIs( value ); }
   [[nodiscard]] uint64_t heard() const { return heard_.back(); }

 private:
   struct Sum final : Record::NotifieeConst {
      Sum( Kel::Ptr<Record> const & record, uint64_t & heard ) : heard_( heard ) { notifierIs( record ); }
      void onValue() override { heard_ += notifier()->value(); }
      uint64_t & heard_;
   };
   struct Mix final : Record::NotifieeConst {
      Mix( Kel::Ptr<Record> const & record, uint64_t & heard ) : heard_( heard ) { notifierIs( record ); }
      void onValue() override { heard_ ^= notifier()->value(); }
      uint64_t & heard_;
   };

   std::vector<uint64_t> heard_;  // by each reactor
   Kel::Ptr<Record> const record_ = new Record( "r" );
   std::vector<std::unique_ptr<Record::NotifieeConst>> const reactors_;
};

class PlainList {
 public:
   explicit PlainList( std::size_t members )
      : heard_( members ), members_( handlers<Sum, Mix, PlainList, Member>( *this, heard_ ) ) {
      Member ** place = &first_;
      for( auto const & member : members_ ) {
         *place = member.get();
         place = &member->next;
      }
   }
   PlainList( PlainList const & ) = delete;
   PlainList & operator=( PlainList const & ) = delete;

   void valueIs( uint64_t value ) {
      if( value == value_ ) return;
      value_ = value;
      for( Member * member = first_; member; member = member->next ) member->onValue();
   }
   [[nodiscard]] uint64_t heard() const { return heard_.back(); }

 private:
   struct Member {
      Member( PlainList & changed, uint64_t & told ) : list( changed ), heard( told ) {}
      virtual ~Member() = default;
      virtual void onValue() = 0;

      PlainList & list;
      uint64_t & heard;
      Member * next = nullptr;
   };
   struct Sum final : Member {
      using Member::Member;
      void onValue() override { heard += list.value_; }
   };
   struct Mix final : Member {
      using Member::Member;
      void onValue() override { heard ^= list.value_; }
   };

   std::vector<uint64_t> heard_;
   uint64_t value_ = 0;
   Member * first_ = nullptr;
   std::vector<std::unique_ptr<Member>> const members_;
};

class Signal {
 public:
   explicit Signal( std::size_t slots ) : heard_( slots ) {
      for( std::size_t i = 0; i < slots; ++i ) {
         uint64_t & heard = heard_[i];
         if( i % 2 == 0 ) {
            changed_.connect( [this, &heard] { heard += value_; } );
         } else {
            changed_.connect( [this, &heard] { heard ^= value_; } );
         }
      }
   }

   void valueIs( uint64_t value ) {
      if( value == value_ ) return;
      value_ = value;
      changed_();
   }
   [[nodiscard]] uint64_t heard() const { return heard_.back(); }

 private:
   using Lock = boost::signals2::keywords::mutex_type<boost::signals2::dummy_mutex>;

   std::vector<uint64_t> heard_;
   uint64_t value_ = 0;
   boost::signals2::signal_type<void(), Lock>::type changed_;
};

template<class Way>
void notify( benchmark::State & state ) {
   Way way( static_cast<std::size_t>( state.range( 0 ) ) );
   uint64_t value = 0;
   for( auto _ : state ) {
      value ^= 1;
      way.valueIs( value );
      benchmark::ClobberMemory();
   }
   benchmark::DoNotOptimize( way.heard() );
   state.SetItemsProcessed( state.iterations() );
}

BENCHMARK( notify<Entity> )->Arg( 1 )->Arg( 4 );
BENCHMARK( notify<PlainList> )->Arg( 1 )->Arg( 4 );
BENCHMARK( notify<Signal> )->Arg( 1 )->Arg( 4 );

}  // namespace
