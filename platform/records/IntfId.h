// The name of an interface as a 32-bit number.
//
// Names are interned in one process-wide table of { name, kind, VLAN id }: a new name gets the next number and keeps it
// as long as the process lives, so copying, comparing for equality and hashing an id work on the number alone, asking
// for the kind is one load from the table, and comparing for order nearly always one or two. The kind follows from the
// form of the name, anything else is other:
//
//    Ethernet<n>[/<n>...]   Port-Channel<n>   Vlan<n>   <Ethernet or Port-Channel name>.<n>   Cpu
//
// A host whose names do not say the kind declares it. The number means nothing outside the process: what is stored or
// shown is the name. The table only grows, so whoever merely looks for what bears a name asks known(), which interns
// nothing. It belongs to the activity loop and has no lock.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "brisklog/KeptText.h"
#include "kel/Value.h"
#include "records/NaturalOrder.h"

namespace Lumo {

enum class IntfKind : uint8_t { other, ethernet, portChannel, vlan, subIntf, cpu };
constexpr char const * enumName( IntfKind k ) {
   switch( k ) {
      case IntfKind::other: return "other";
      case IntfKind::ethernet: return "ethernet";
      case IntfKind::portChannel: return "portChannel";
      case IntfKind::vlan: return "vlan";
      case IntfKind::subIntf: return "subIntf";
      case IntfKind::cpu: return "cpu";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( IntfKind )

// What the table keeps of each name.
struct IntfFacts {
   IntfKind kind = IntfKind::other;
   IntfKind baseKind = IntfKind::other;
   uint32_t vlanId = 0;  // as the name or the declaration says it, not checked
   Brisklog::KeptText name{};
};

class IntfId {
 public:
   // The empty id, which stands for no interface. Its name is empty and its kind other.
   IntfId() = default;
   explicit IntfId( std::string_view name );
   // The id of a name that is interned already; none for any other name, which then nothing bears.
   [[nodiscard]] static std::optional<IntfId> known( std::string_view name );
   // How many names are interned, that of the empty id included.
   [[nodiscard]] static std::size_t names();

   // Gives a name its kind, whatever its form. It holds from now on, also for ids that exist already. A VLAN interface
   // comes with its VLAN id.
   static IntfId declare( std::string_view name, IntfKind kind, uint16_t vlanId = 0 );

   [[nodiscard]] bool empty() const { return number_ == 0; }
   [[nodiscard]] std::string_view name() const { return facts_[number_].name.view(); }  // valid for ever
   [[nodiscard]] Brisklog::KeptText const & keptName() const { return facts_[number_].name; }
   operator std::string_view() const { return name(); }  // reads as its name wherever a text is wanted

   [[nodiscard]] IntfKind kind() const { return facts_[number_].kind; }
   // Of a sub-interface known by its name: the kind of the interface that it divides. Of all others: their own kind.
   [[nodiscard]] IntfKind baseKind() const { return facts_[number_].baseKind; }

   bool operator==( IntfId const & ) const = default;
   // The natural order of the names (records/NaturalOrder.h).
   std::strong_ordering operator<=>( IntfId const & other ) const {
      auto const byKey = keys_[number_] <=> keys_[other.number_];
      return byKey != 0 ? byKey : compareNames( other );
   }

   friend std::ostream & operator<<( std::ostream & out, IntfId id ) { return out << id.name(); }

 private:
   friend struct VlanIntfId;
   friend struct std::hash<IntfId>;
   friend class IntfTable;

   [[nodiscard]] std::strong_ordering compareNames( IntfId const & other ) const;

   // By number; they move when the table grows.
   static IntfFacts const * facts_;
   static NaturalKey const * keys_;

   uint32_t number_ = 0;
};

// A sub-interface passes the test of the interface that its name says it divides: ask for sub-interfaces first.
struct EthIntfId {
   [[nodiscard]] static bool isEthIntfId( IntfId id ) { return id.baseKind() == IntfKind::ethernet; }
};
struct PortChannelIntfId {
   [[nodiscard]] static bool isPortChannelIntfId( IntfId id ) { return id.baseKind() == IntfKind::portChannel; }
};
struct SubIntfId {
   [[nodiscard]] static bool isSubIntfId( IntfId id ) { return id.kind() == IntfKind::subIntf; }
};
struct CpuIntfId {
   [[nodiscard]] static bool isCpuIntfId( IntfId id ) { return id.kind() == IntfKind::cpu; }
};
struct VlanIntfId {
   [[nodiscard]] static bool isVlanIntfId( IntfId id ) { return id.kind() == IntfKind::vlan; }
   // The VLAN of a VLAN interface. Throws RangeError when it is outside 1..4094.
   [[nodiscard]] static uint16_t vlanId( IntfId id );
};

}  // namespace Lumo

template<>
struct std::hash<Lumo::IntfId> {
   std::size_t operator()( Lumo::IntfId id ) const noexcept { return id.number_; }
};

template<>
struct Brisklog::Arg<Lumo::IntfId> : Brisklog::TextArg {
   static KeptText text( Lumo::IntfId id ) { return id.keptName(); }
};

template<>
struct Kel::KeyTraits<Lumo::IntfId> {
   static std::string toText( Lumo::IntfId id ) { return std::string( id.name() ); }
   static Lumo::IntfId fromText( std::string_view text ) { return Lumo::IntfId( text ); }
   static std::optional<Lumo::IntfId> known( std::string_view text ) { return Lumo::IntfId::known( text ); }
};

// As an attribute: the name, empty for none.
template<>
struct Kel::ValueTraits<Lumo::IntfId> {
   static std::string typeName() { return "string"; }
   static Value toValue( Lumo::IntfId id ) { return Value( Value::Content( std::string( id.name() ) ) ); }
   static Lumo::IntfId fromValue( Value const & v ) {
      if( auto const * name = v.as<std::string>() ) return Lumo::IntfId( *name );
      wrongType( "the name of an interface", v );
   }
};
