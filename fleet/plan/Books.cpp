#include "plan/Books.h"

#include <charconv>
#include <utility>

#include "plan/Rows.h"

namespace Fleet {

namespace {

constexpr char const * numberKey = "number";
constexpr char const * planNumberKey = "plan-number";
constexpr std::string_view slotKeys = "slot/";
constexpr std::string_view planKeys = "plan/";
constexpr std::string_view brakeKeys = "brake/";

std::string key( std::string_view in, std::string const & name ) { return std::string( in ) + name; }

uint64_t numberFrom( std::string const & at, std::string const & text ) {
   uint64_t number = 0;
   auto const read = std::from_chars( text.data(), text.data() + text.size(), number );
   if( read.ec == std::errc() && read.ptr == text.data() + text.size() ) return number;
   throw MemoryDamaged( "a row of the books cannot be read: " + at + " is \"" + text + "\"" );
}

}  // namespace

Books::Books( Ledger & memory ) : memory_( memory ) { read(); }

void Books::read() {
   // Where it cannot be read nothing is forgotten: a unit that has leave to be out would count as in service.
   unread_ = true;
   uint64_t lastNumber = 0;
   uint64_t lastPlan = 0;
   std::map<UnitName, Slot> slots;
   std::map<std::string, Plan> plans;
   std::map<std::string, Brake> brakes;
   for( auto const & [at, text] : memory_.rows() ) {
      std::string const name = at.substr( at.find( '/' ) + 1 );
      if( at == numberKey ) {
         lastNumber = numberFrom( at, text );
      } else if( at == planNumberKey ) {
         lastPlan = numberFrom( at, text );
      } else if( at.starts_with( slotKeys ) ) {
         auto const unit = unitNamed( name );
         if( !unit ) throw MemoryDamaged( "a row of the books cannot be read: " + at + " is of no unit" );
         slots[*unit] = slotFrom( at, text );
      } else if( at.starts_with( planKeys ) ) {
         plans[name] = planFrom( at, text );
      } else if( at.starts_with( brakeKeys ) ) {
         brakes[name] = brakeFrom( at, text );
      } else {
         throw MemoryDamaged( "the books have a row \"" + at + "\" that this release does not know" );
      }
   }
   lastNumber_ = lastNumber;
   lastPlan_ = lastPlan;
   slots_ = std::move( slots );
   plans_ = std::move( plans );
   brakes_ = std::move( brakes );
   unread_ = false;
}

Slot const * Books::slot( UnitName const & unit ) const {
   auto const slot = slots_.find( unit );
   return slot == slots_.end() ? nullptr : &slot->second;
}

void Books::slotIs( UnitName const & unit, Slot const & slot ) {
   slots_[unit] = slot;
   noted_[key( slotKeys, unit.text() )] = rowOf( slot );
}

void Books::planIs( Plan const & plan ) {
   noted_[key( planKeys, plan.id )] = rowOf( plan );
   plans_[plan.id] = plan;
}

void Books::planDel( std::string const & id ) {
   noted_[key( planKeys, id )] = std::nullopt;
   plans_.erase( id );
}

void Books::brakeIs( std::string const & site, Brake const & brake ) {
   brakes_[site] = brake;
   noted_[key( brakeKeys, site )] = rowOf( brake );
}

void Books::brakeDel( std::string const & site ) {
   brakes_.erase( site );
   noted_[key( brakeKeys, site )] = std::nullopt;
}

uint64_t Books::numberNext() {
   lastNumberIs( lastNumber_ + 1 );
   return lastNumber_;
}

uint64_t Books::planNumberNext() {
   noted_[planNumberKey] = std::to_string( ++lastPlan_ );
   return lastPlan_;
}

void Books::lastNumberIs( uint64_t number ) {
   lastNumber_ = number;
   noted_[numberKey] = std::to_string( number );
}

void Books::keep( Records const & happened ) {
   if( unread_ ) {
      noted_.clear();
      read();
      throw MemoryFault( "what could not be kept was taken back only now" );
   }
   if( noted_.empty() && happened.empty() ) return;
   Memory::Changes const changes = std::exchange( noted_, {} );
   try {
      memory_.commit( changes, happened );
   } catch( MemoryFault const & ) {
      read();
      throw;
   }
}

}  // namespace Fleet
