#include "store/RowText.h"

#include <algorithm>
#include <boost/json/basic_parser_impl.hpp>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <utility>

#include "kel/Json.h"

namespace Host::RowText {

namespace {

using Kel::Value;

// One of the parser's open objects or lists.
struct Open {
   bool isObject;
   Value::Object object;
   Value::List list;
   std::string key;  // of the member that comes next
};

// Builds the value from the parser's events.
class Builder {
 public:
   // The parser asks for these four. The text is in memory already, so there is nothing to protect.
   static constexpr std::size_t max_object_size = SIZE_MAX;
   static constexpr std::size_t max_array_size = SIZE_MAX;
   static constexpr std::size_t max_key_size = SIZE_MAX;
   static constexpr std::size_t max_string_size = SIZE_MAX;

   using Error = boost::json::error_code;
   using Text = boost::json::string_view;

   Value take() { return std::move( root_ ); }

   bool on_document_begin( Error & ) { return true; }
   bool on_document_end( Error & ) { return true; }
   bool on_object_begin( Error & ) { return opened( true ); }
   bool on_array_begin( Error & ) { return opened( false ); }
   bool on_object_end( std::size_t, Error & ) { return closed(); }
   bool on_array_end( std::size_t, Error & ) { return closed(); }
   bool on_key_part( Text text, std::size_t, Error & ) { return gathered( text ); }
   bool on_key( Text text, std::size_t, Error & ) {
      gathered( text );
      auto & [isObject, object, list, key] = open_.back();
      key = std::exchange( text_, "" );
      return true;
   }
   bool on_string_part( Text text, std::size_t, Error & ) { return gathered( text ); }
   bool on_string( Text text, std::size_t, Error & ) {
      gathered( text );
      return add( Value( Value::Content( std::exchange( text_, "" ) ) ) );
   }
   bool on_number_part( Text, Error & ) { return true; }
   bool on_int64( std::int64_t n, Text, Error & ) {
      return add( Value( n < 0 ? Value::Content( n ) : Value::Content( static_cast<uint64_t>( n ) ) ) );
   }
   bool on_uint64( std::uint64_t n, Text, Error & ) { return add( Value( Value::Content( n ) ) ); }
   // From the text, which is whole, as all of it was given at once: the parser's own conversion may be off in the last
   // place. What is out of range it knows as well as anybody.
   bool on_double( double rough, Text text, Error & ) {
      double exact = 0;
      auto const [end, error] = std::from_chars( text.data(), text.data() + text.size(), exact );
      return add( Value( Value::Content( error == std::errc() ? exact : rough ) ) );
   }
   bool on_bool( bool b, Error & ) { return add( Value( Value::Content( b ) ) ); }
   bool on_null( Error & ) { return add( Value( Value::Content( std::nan( "" ) ) ) ); }
   bool on_comment_part( Text, Error & ) { return true; }
   bool on_comment( Text, Error & ) { return true; }

 private:
   bool gathered( Text text ) {
      text_.append( text.data(), text.size() );
      return true;
   }
   bool opened( bool object ) {
      open_.push_back( { object, {}, {}, {} } );
      return true;
   }
   bool closed() {
      Open last = std::move( open_.back() );
      open_.pop_back();
      if( !last.isObject ) return add( Value( Value::Content( std::move( last.list ) ) ) );
      refuseDoubles( last.object );
      return add( Value( Value::Content( std::move( last.object ) ) ) );
   }
   bool add( Value value ) {
      if( open_.empty() ) {
         root_ = std::move( value );
      } else if( open_.back().isObject ) {
         open_.back().object.emplace_back( std::move( open_.back().key ), std::move( value ) );
      } else {
         open_.back().list.push_back( std::move( value ) );
      }
      return true;
   }
   static void refuseDoubles( Value::Object const & object ) {
      std::vector<std::string_view> names;
      for( auto const & [name, member] : object ) names.push_back( name );
      std::ranges::sort( names );
      auto const twice = std::ranges::adjacent_find( names );
      if( twice == names.end() ) return;
      throw Kel::AttributeError( "\"" + std::string( *twice ) + "\" stands twice in one object" );
   }

   Value root_;
   std::vector<Open> open_;
   std::string text_;
};

void append( std::string & out, Value const & value ) {
   if( auto const * const object = value.as<Value::Object>() ) {
      char const * before = "{";
      for( auto const & [name, member] : *object ) {
         out += std::exchange( before, "," ) + Kel::toJson( std::string_view( name ) ) + ":";
         append( out, member );
      }
      out += object->empty() ? "{}" : "}";
   } else if( auto const * const list = value.as<Value::List>() ) {
      char const * before = "[";
      for( Value const & element : *list ) {
         out += std::exchange( before, "," );
         append( out, element );
      }
      out += list->empty() ? "[]" : "]";
   } else if( auto const * const d = value.as<double>(); d && std::isinf( *d ) ) {
      out += *d > 0 ? "1e999" : "-1e999";
   } else {
      out += Kel::toJson( value );
   }
}

bool standsForItself( char c ) {
   auto const byte = static_cast<unsigned char>( c );
   return byte >= 0x20 && byte != 0x7f && c != '/' && c != '%';
}

}  // namespace

std::string of( Value const & value ) {
   std::string out;
   append( out, value );
   return out;
}

Value value( std::string_view text ) {
   boost::json::basic_parser<Builder> parser{ boost::json::parse_options() };
   boost::json::error_code error;
   std::size_t const taken = parser.write_some( false, text.data(), text.size(), error );
   if( error ) throw Kel::AttributeError( "is no JSON: " + error.message() );
   if( taken != text.size() ) throw Kel::AttributeError( "is no JSON: it goes on after its end" );
   return parser.handler().take();
}

std::string joined( std::string const & path, std::string_view component ) {
   static constexpr char hex[] = "0123456789abcdef";
   std::string out = path + "/";
   for( char const c : component ) {
      if( standsForItself( c ) ) {
         out += c;
      } else {
         out += { '%', hex[( c >> 4 ) & 0xf], hex[c & 0xf] };
      }
   }
   return out;
}

std::vector<std::string> components( std::string_view path ) {
   std::vector<std::string> all( 1 );
   for( std::size_t i = 0; i < path.size(); ++i ) {
      if( path[i] == '/' ) {
         all.emplace_back();
      } else if( path[i] != '%' ) {
         all.back() += path[i];
      } else {
         unsigned byte = 0;
         char const * const digits = path.data() + i + 1;
         char const * const last = path.data() + std::min( i + 3, path.size() );
         if( std::from_chars( digits, last, byte, 16 ).ptr != digits + 2 ) {
            throw Kel::AttributeError( "its path has a \"%\" without a number" );
         }
         all.back() += static_cast<char>( byte );
         i += 2;
      }
   }
   return all;
}

}  // namespace Host::RowText
