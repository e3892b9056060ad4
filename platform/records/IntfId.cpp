#include "records/IntfId.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <memory_resource>
#include <unordered_set>
#include <vector>

#include "kel/Assert.h"
#include "kel/Exception.h"

namespace Lumo {

namespace {

// Not std::isdigit: that goes by the locale and must not be handed a negative char.
bool isDigit( char c ) { return c >= '0' && c <= '9'; }

// Each of these takes something off the front of `rest`, if it is there.
bool take( std::string_view & rest, std::string_view prefix ) {
   if( !rest.starts_with( prefix ) ) return false;
   rest.remove_prefix( prefix.size() );
   return true;
}

std::string_view takeDigits( std::string_view & rest ) {
   auto const end = std::find_if_not( rest.begin(), rest.end(), isDigit );
   auto const digits = rest.substr( 0, static_cast<std::size_t>( end - rest.begin() ) );
   rest.remove_prefix( digits.size() );
   return digits;
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

// A run of digits, taken apart for comparison.
struct Run {
   explicit Run( std::string_view digits )
      : zeros( std::min( digits.find_first_not_of( '0' ), digits.size() ) ), value( digits.substr( zeros ) ) {}

   std::size_t zeros;
   std::string_view value;  // without leading zeros, so that the longer one is the greater
};

std::strong_ordering compareNaturally( std::string_view a, std::string_view b ) {
   auto byZeros = std::strong_ordering::equal;  // the first difference in leading zeros
   while( !a.empty() && !b.empty() ) {
      if( isDigit( a.front() ) && isDigit( b.front() ) ) {
         Run const runA( takeDigits( a ) );
         Run const runB( takeDigits( b ) );
         if( auto const c = runA.value.size() <=> runB.value.size(); c != 0 ) return c;
         if( auto const c = runA.value <=> runB.value; c != 0 ) return c;
         // Only remembered: Ethernet01 and Ethernet1 are two names, but what follows comes before that difference.
         if( byZeros == 0 ) byZeros = runA.zeros <=> runB.zeros;
      } else {
         // As std::string compares: a char may be signed, and bytes beyond ASCII would come first.
         auto const c = static_cast<unsigned char>( a.front() ) <=> static_cast<unsigned char>( b.front() );
         if( c != 0 ) return c;
         a.remove_prefix( 1 );
         b.remove_prefix( 1 );
      }
   }
   auto const byEnd = a.size() <=> b.size();  // one of them is empty
   return byEnd != 0 ? byEnd : byZeros;
}

// The empty id may be asked for its name by the initialisation of other statics, before there is a table.
constexpr IntfFacts factsOfNoName;

}  // namespace

constinit IntfFacts const * IntfId::facts_ = &factsOfNoName;

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
      // The vector may have moved; ids read through this pointer, which saves them a look at the table.
      IntfId::facts_ = facts_.data();
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

std::strong_ordering IntfId::operator<=>( IntfId const & other ) const {
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
