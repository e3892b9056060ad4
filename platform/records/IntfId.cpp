#include "records/IntfId.h"

#include <charconv>
#include <limits>
#include <memory_resource>
#include <unordered_set>
#include <vector>

#include "kel/Assert.h"
#include "kel/Exception.h"

namespace Lumo {

namespace {

// As takeDigits(), each of these takes something off the front of `rest`, if it is there.
bool take( std::string_view & rest, std::string_view prefix ) {
   if( !rest.starts_with( prefix ) ) return false;
   rest.remove_prefix( prefix.size() );
   return true;
}

bool takeNumber( std::string_view & rest ) { return !takeDigits( rest ).empty(); }

// Takes an Ethernet or port-channel name; other when there is none. What it then leaves in `rest` means nothing.
IntfKind takeBase( std::string_view & rest ) {
   if( take( rest, "Port-Channel" ) ) return takeNumber( rest ) ? IntfKind::portChannel : IntfKind::other;
   if( !take( rest, "Ethernet" ) || !takeNumber( rest ) ) return IntfKind::other;
   while( take( rest, "/" ) ) {
      if( !takeNumber( rest ) ) return IntfKind::other;
   }
   return IntfKind::ethernet;
}

// Numbers too great for the type become the greatest that it holds, which is no VLAN id: one that wrapped around could
// be.
uint32_t saturatedNumber( std::string_view digits ) {
   uint32_t number = 0;
   auto const [end, error] = std::from_chars( digits.data(), digits.data() + digits.size(), number );
   return error == std::errc() ? number : std::numeric_limits<uint32_t>::max();
}

IntfFacts factsOf( std::string_view name ) {
   std::string_view rest = name;
   if( name == "Cpu" ) return { IntfKind::cpu, IntfKind::cpu };
   if( take( rest, "Vlan" ) ) {
      auto const digits = takeDigits( rest );
      if( digits.empty() || !rest.empty() ) return {};
      return { IntfKind::vlan, IntfKind::vlan, saturatedNumber( digits ) };
   }
   IntfKind const base = takeBase( rest );
   // Also a name that broke off, such as "Ethernet": its base is other then.
   if( rest.empty() ) return { base, base };
   bool const divided = base != IntfKind::other && take( rest, "." ) && takeNumber( rest ) && rest.empty();
   return divided ? IntfFacts{ IntfKind::subIntf, base } : IntfFacts{};
}

// The empty id may be asked for its name, or for its place, by the initialisation of other statics, before there is a
// table.
constexpr IntfFacts factsOfNoName;
constexpr NaturalKey keyOfNoName;

}  // namespace

constinit IntfFacts const * IntfId::facts_ = &factsOfNoName;
constinit NaturalKey const * IntfId::keys_ = &keyOfNoName;

class IntfTable {
 public:
   // Never destroyed, because names are valid for ever, also in the destructors of other statics.
   static IntfTable & instance() {
      static IntfTable & table = *new IntfTable;
      return table;
   }

   std::size_t size() const { return facts_.size(); }

   std::optional<uint32_t> find( std::string_view name ) const {
      auto const i = numbers_.find( name );
      return i == numbers_.end() ? std::nullopt : std::optional( *i );
   }

   uint32_t number( std::string_view name ) {
      if( auto const present = find( name ) ) return *present;
      auto const number = static_cast<uint32_t>( facts_.size() );
      facts_.push_back( factsOf( name ) );
      facts_.back().name = Brisklog::KeptText::copyOf( name, names_ );
      keys_.emplace_back( name );
      // The vectors may have moved; ids read through these pointers, which saves them a look at the table.
      IntfId::facts_ = facts_.data();
      IntfId::keys_ = keys_.data();
      // Last: the set hashes a number by its name, which must be there and be found through the pointer.
      numbers_.insert( number );
      return number;
   }

   void kindIs( uint32_t number, IntfKind kind, uint32_t vlanId ) {
      // A declaration speaks of the interface itself and not of one that it divides, so the base kind is the same.
      facts_[number] = { kind, kind, vlanId, facts_[number].name };
   }

 private:
   // A number of the table stands for its name.
   static std::string_view nameOf( std::string_view name ) { return name; }
   static std::string_view nameOf( uint32_t number ) { return IntfId::facts_[number].name.view(); }
   struct HashByName {
      using is_transparent = void;
      std::size_t operator()( auto const & key ) const { return std::hash<std::string_view>{}( nameOf( key ) ); }
   };
   struct EqualByName {
      using is_transparent = void;
      bool operator()( auto const & a, auto const & b ) const { return nameOf( a ) == nameOf( b ); }
   };

   // The empty name comes first, so that 0 is the number of the empty id.
   IntfTable() { number( "" ); }

   // Grows in blocks that never move, as views of the names are in everyone's hands.
   std::pmr::monotonic_buffer_resource names_;
   std::vector<IntfFacts> facts_;
   // Apart from the facts: a sample reads those, and keys among them would spread them over more memory.
   std::vector<NaturalKey> keys_;
   std::unordered_set<uint32_t, HashByName, EqualByName> numbers_;
};

IntfId::IntfId( std::string_view name ) : number_( IntfTable::instance().number( name ) ) {}

std::optional<IntfId> IntfId::known( std::string_view name ) {
   auto const number = IntfTable::instance().find( name );
   if( !number ) return std::nullopt;
   IntfId id;
   id.number_ = *number;
   return id;
}

std::size_t IntfId::names() { return IntfTable::instance().size(); }

IntfId IntfId::declare( std::string_view name, IntfKind kind, uint16_t vlanId ) {
   // The empty id is shared by all who mean no interface; a kind for it would be a kind for all of them.
   KEL_ASSERT( !name.empty() );
   IntfId const id( name );
   IntfTable::instance().kindIs( id.number_, kind, vlanId );
   return id;
}

std::strong_ordering IntfId::compareNames( IntfId const & other ) const {
   // Equal names have equal numbers, so below this line the order is never equal and agrees with ==.
   if( number_ == other.number_ ) return std::strong_ordering::equal;
   return compareNaturally( name(), other.name() );
}

uint16_t VlanIntfId::vlanId( IntfId id ) {
   KEL_ASSERT( isVlanIntfId( id ) );
   // Checked here and not when the name is interned: what a host calls its interfaces is no fault of ours until
   // somebody needs the VLAN.
   uint32_t const value = IntfId::facts_[id.number_].vlanId;
   if( value < 1 || value > 4094 ) {
      throw Kel::RangeError( "VlanId::value " + std::to_string( value ) +
                             " less than 1 or greater than 4094 not allowed" );
   }
   return static_cast<uint16_t>( value );
}

}  // namespace Lumo
