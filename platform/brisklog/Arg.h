// What a ring-trace message can carry, and how a call site's arguments are checked when it is compiled.
//
// An argument travels as one 64-bit word (numbers, enumerations by their number) or as a copy of a short text (whatever
// converts to std::string_view). Arg<T> says which for a type T; another type is taught here by a specialisation next
// to its definition:
//
//    template<>
//    struct Brisklog::Arg<Port> : Brisklog::TextArg {
//       static std::string_view text( Port const & port ) { return port.label(); }
//    };
//
// A type whose texts are kept in the ring's layout (brisklog/KeptText.h) gives a KeptText in place of a
// std::string_view.
//
// A plain char is no argument: whether it is a number or a text is for the caller to say.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "kel/String8.h"

namespace Brisklog {

// Part of the file format: numbers are never given a new meaning.
enum class ArgType : uint8_t { signedWord = 1, unsignedWord = 2, realWord = 3, text = 4 };

inline constexpr std::size_t argCountMax = 16;
// A longer text is cut there and marked as cut. With its length byte it fills 15 words.
inline constexpr std::size_t textBytesMax = 119;

template<class T>
struct Arg;

template<std::integral T>
requires( !std::same_as<T, char> ) struct Arg<T> {
   static constexpr ArgType type = std::is_signed_v<T> ? ArgType::signedWord : ArgType::unsignedWord;
   static uint64_t word( T value ) { return static_cast<uint64_t>( value ); }
};

template<std::floating_point T>
struct Arg<T> {
   static constexpr ArgType type = ArgType::realWord;
   static uint64_t word( T value ) { return std::bit_cast<uint64_t>( static_cast<double>( value ) ); }
};

template<class T>
requires std::is_enum_v<T>
struct Arg<T> : Arg<std::underlying_type_t<T>> {
   static uint64_t word( T value ) {
      return Arg<std::underlying_type_t<T>>::word( static_cast<std::underlying_type_t<T>>( value ) );
   }
};

// The base of every Arg whose `text()` gives what is copied: a std::string_view or what copies itself, as a KeptText
// does.
struct TextArg {
   static constexpr ArgType type = ArgType::text;
};

template<std::convertible_to<std::string_view> T>
requires( !std::is_pointer_v<T> ) struct Arg<T> : TextArg {
   static std::string_view text( std::string_view value ) { return value; }
};

template<class T>
requires( std::same_as<T, char const *> || std::same_as<T, char *> ) struct Arg<T> : TextArg {
   static std::string_view text( char const * value ) { return value ? value : "(null)"; }
};

template<>
struct Arg<Kel::String8> : TextArg {
   static std::string_view text( Kel::String8 const & value ) { return value.view(); }
};

// A captured argument: knows its bytes in the ring, always whole words, and copies itself there.
struct WordSlot {
   uint64_t word;

   [[nodiscard]] static constexpr uint32_t bytes() { return sizeof( uint64_t ); }
   void put( std::byte * to ) const { std::memcpy( to, &word, sizeof word ); }
};

// Short texts are most of what is copied, and a call of memcpy for a length that is not known costs more than their
// copy.
inline void copyShortText( std::byte * to, char const * from, std::size_t bytes ) {
   if( bytes >= 8 ) {
      for( std::size_t at = 0; at + 8 < bytes; at += 8 ) std::memcpy( to + at, from + at, 8 );
      std::memcpy( to + bytes - 8, from + bytes - 8, 8 );  // overlaps what the loop copied last
   } else if( bytes >= 4 ) {
      std::memcpy( to, from, 4 );
      std::memcpy( to + bytes - 4, from + bytes - 4, 4 );
   } else if( bytes > 0 ) {
      // First, middle and last: of one to three bytes these are all.
      std::memcpy( to, from, 1 );
      std::memcpy( to + bytes / 2, from + bytes / 2, 1 );
      std::memcpy( to + bytes - 1, from + bytes - 1, 1 );
   }
}

// In the ring a text is a byte with its length, then its characters, then whatever fills the last word.
struct TextSlot {
   static constexpr uint8_t cutMark = 0x80;  // beside the length

   // Of the whole, by its first byte: as many words as hold that byte and the length, at most 15.
   [[nodiscard]] static constexpr uint32_t bytesAfter( std::byte first ) {
      // 15 words are 120 bytes, whose bits are also the mask that rounds down to whole words and drops the cut mark. A
      // length that no writer gives may come out as 0, so a reader checks the length as well.
      constexpr uint32_t wholeWords = 15 * sizeof( uint64_t );
      return ( std::to_integer<uint32_t>( first ) + sizeof( uint64_t ) ) & wholeWords;
   }

   std::string_view text;

   [[nodiscard]] std::size_t length() const { return text.size() < textBytesMax ? text.size() : textBytesMax; }
   [[nodiscard]] std::byte first() const {
      return static_cast<std::byte>( length() | ( text.size() > textBytesMax ? cutMark : 0u ) );
   }
   [[nodiscard]] uint32_t bytes() const { return bytesAfter( first() ); }
   void put( std::byte * to ) const {
      *to = first();
      copyShortText( to + 1, text.data(), length() );
   }
};

template<class T>
[[nodiscard, gnu::always_inline]] inline auto slotOf( T const & value ) {
   using Traits = Arg<std::decay_t<T>>;
   if constexpr( Traits::type != ArgType::text ) {
      return WordSlot{ Traits::word( value ) };
   } else if constexpr( std::convertible_to<decltype( Traits::text( value ) ), std::string_view> ) {
      return TextSlot{ Traits::text( value ) };
   } else {
      return Traits::text( value );
   }
}

// The types of one call's arguments.
template<class... Args>
struct ArgList {
   static constexpr std::size_t count = sizeof...( Args );
   // One more than there are: an array cannot be empty.
   static constexpr ArgType types[count + 1] = { Arg<Args>::type... };
};

// Only for decltype: the arguments themselves are not evaluated.
template<class... Args>
ArgList<std::decay_t<Args>...> argListOf( Args const &... args );

// The number of {} in a format.
[[nodiscard]] consteval std::size_t slotCount( std::string_view format ) {
   std::size_t slots = 0;
   for( std::size_t at = format.find( "{}" ); at != std::string_view::npos; at = format.find( "{}", at + 2 ) ) ++slots;
   return slots;
}

}  // namespace Brisklog
