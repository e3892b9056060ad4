// How one declaration per attribute becomes a list of all attributes.
//
// C++ offers no way to ask a class for its members, so each attribute macro adds one link to a chain of nested types: a
// link derives from the link before it, found by overload resolution (Rank<n> converts to every smaller rank, the
// nearest wins). The last link thus knows all attributes in order of declaration, without a second list anywhere.
#pragma once

namespace Kel {

template<int n>
struct Rank : Rank<n - 1> {};

template<>
struct Rank<0> {};

// The most attributes that one type can have. A link beyond is never found, and its attribute not reflected.
inline constexpr int maxAttributes = 40;

}  // namespace Kel

// The link declared last so far, inside a class body that declares `static X kelChain( Kel::Rank<0> )`.
#define KEL_LAST_LINK decltype( kelChain( ::Kel::Rank<::Kel::maxAttributes>{} ) )

// Makes LINK, a complete nested type with a `kelRank`, the last one.
#define KEL_LINK_IS( LINK )                                \
   static_assert( LINK::kelRank <= ::Kel::maxAttributes ); \
   static LINK kelChain( ::Kel::Rank<LINK::kelRank> );
