// A reference-counted immutable string: copying costs a count, comparing two copies of one string costs a pointer, and
// the hash is computed once. Keys of most collections that are not keyed by interface.
//
// The empty string has no storage. Not for text that is built up: use std::string and convert once.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "kel/Ptr.h"

namespace Kel {

class String8 {
 public:
   String8() = default;
   String8( std::string_view text ) : text_( text.empty() ? nullptr : new Text( text ) ) {}
   String8( std::string const & text ) : String8( std::string_view( text ) ) {}
   String8( char const * text ) : String8( std::string_view( text ) ) {}

   [[nodiscard]] std::string_view view() const { return text_ ? std::string_view( text_->chars ) : std::string_view(); }
   [[nodiscard]] std::string str() const { return std::string( view() ); }
   [[nodiscard]] char const * c_str() const { return text_ ? text_->chars.c_str() : ""; }
   [[nodiscard]] bool empty() const { return !text_; }
   [[nodiscard]] std::size_t hash() const { return text_ ? text_->hash : 0; }

   bool operator==( String8 const & other ) const {
      // Different strings nearly always differ in their hashes, so characters are compared only where they are equal.
      return text_ == other.text_ || ( hash() == other.hash() && view() == other.view() );
   }
   std::strong_ordering operator<=>( String8 const & other ) const { return view() <=> other.view(); }

   friend std::ostream & operator<<( std::ostream & out, String8 const & s ) { return out << s.view(); }

 private:
   struct Text final : PtrInterface {
      explicit Text( std::string_view text ) : chars( text ), hash( std::hash<std::string_view>{}( text ) ) {}
      std::string const chars;
      std::size_t const hash;
   };

   Ptr<Text const> text_;
};

// A short name used as a key.
using Name = String8;

// A span or a point of time on the activity clock, in seconds.
using Seconds = double;

}  // namespace Kel

template<>
struct std::hash<Kel::String8> {
   std::size_t operator()( Kel::String8 const & s ) const noexcept { return s.hash(); }
};
