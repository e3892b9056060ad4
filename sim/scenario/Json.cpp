#include "scenario/Json.h"

#include <algorithm>
#include <boost/json/basic_parser_impl.hpp>
#include <charconv>

namespace Sim {

namespace {

using Kel::Value;

// What the parser says of a text that is none, for people.
char const * meaning( boost::json::error_code const & error ) {
   using E = boost::json::error;
   if( error == E::incomplete ) return "it ends before it is complete";
   if( error == E::too_deep ) return "it is nested too deeply";
   if( error == E::illegal_leading_surrogate || error == E::illegal_trailing_surrogate ||
       error == E::expected_hex_digit || error == E::expected_utf16_escape )
      return "a \\u is followed by four hexadecimal digits that make a character";
   if( error == E::exponent_overflow ) return "the exponent of this number is too large";
   return "something else has to stand here, such as a quote, a comma or a bracket";
}

// Builds the tree from the parser's events. The parser tells of a token when it has ended and not where it began; it is
// therefore fed token by token, and this notes at which byte one begins.
class Builder {
 public:
   // The parser asks for these four. The line is in memory already, so there is nothing to protect.
   static constexpr std::size_t max_object_size = SIZE_MAX;
   static constexpr std::size_t max_array_size = SIZE_MAX;
   static constexpr std::size_t max_key_size = SIZE_MAX;
   static constexpr std::size_t max_string_size = SIZE_MAX;

   explicit Builder( std::string_view line ) : line_( line ) {}

   void positionIs( std::size_t position ) {
      position_ = position;
      // What separates tokens begins none. A closing bracket is not a token either: nothing is reported at its column.
      bool const between =
         position < line_.size() && std::string_view( " \t\r\n,:]}" ).find( line_[position] ) != std::string_view::npos;
      if( !inToken_ && !between ) {
         begin_ = position;
         inToken_ = true;
      }
   }
   // How many bytes from the present position on can be given to the parser at once, as no token begins among them.
   [[nodiscard]] std::size_t run() const {
      std::size_t end = position_ + 1;
      if( !inToken_ ) return 1;
      if( line_[position_] == '"' && begin_ == position_ ) {
         while( end < line_.size() && line_[end] != '"' && line_[end] != '\\' ) ++end;
         return end < line_.size() && line_[end] == '"' ? end + 1 - position_ : 1;
      }
      auto const inNumber = []( char c ) { return ( c >= '0' && c <= '9' ) || c == '.'; };
      while( end < line_.size() && inNumber( line_[end - 1] ) && inNumber( line_[end] ) ) ++end;
      return end - position_;
   }
   Json take() { return std::move( root_ ); }

   using Error = boost::json::error_code;
   using Text = boost::json::string_view;

   bool on_document_begin( Error & ) { return true; }
   bool on_document_end( Error & ) { return true; }
   bool on_object_begin( Error & ) { return open( Json::Object() ); }
   bool on_object_end( std::size_t, Error & ) { return close(); }
   bool on_array_begin( Error & ) { return open( Json::List() ); }
   bool on_array_end( std::size_t, Error & ) { return close(); }
   bool on_key_part( Text text, std::size_t, Error & ) { return gather( text ); }
   bool on_key( Text text, std::size_t, Error & ) {
      gather( text );
      key_ = std::exchange( text_, "" );
      keyColumn_ = begin_ + 1;
      // A key is not added to the tree, where tokens end otherwise.
      inToken_ = false;
      return true;
   }
   bool on_string_part( Text text, std::size_t, Error & ) { return gather( text ); }
   bool on_string( Text text, std::size_t, Error & ) {
      gather( text );
      return scalar( Value( Value::Content( std::exchange( text_, "" ) ) ) );
   }
   bool on_number_part( Text, Error & ) { return true; }
   bool on_int64( std::int64_t n, Text, Error & ) {
      // One form for each number: whatever is not negative is a uint64, as a key in a path, such as a VLAN's, is looked
      // for.
      if( n < 0 ) return scalar( Value( Value::Content( n ) ) );
      return scalar( Value( Value::Content( static_cast<uint64_t>( n ) ) ) );
   }
   bool on_uint64( std::uint64_t n, Text, Error & ) { return scalar( Value( Value::Content( n ) ) ); }
   // From the text itself: the parser's own conversion may be off in the last place, and a scenario must read back what
   // it printed.
   bool on_double( double, Text, Error & ) {
      double exact = 0;
      auto const [end, error] = std::from_chars( line_.data() + begin_, line_.data() + line_.size(), exact );
      if( error != std::errc() ) throw LineError( begin_ + 1, "this number is out of range" );
      return scalar( Value( Value::Content( exact ) ) );
   }
   bool on_bool( bool b, Error & ) { return scalar( Value( Value::Content( b ) ) ); }
   bool on_null( Error & ) { return scalar( Value() ); }
   bool on_comment_part( Text, Error & ) { return true; }
   bool on_comment( Text, Error & ) { return true; }

 private:
   bool gather( Text text ) {
      text_.append( text.data(), text.size() );
      return true;
   }
   bool scalar( Value value ) {
      add( Json{ begin_ + 1, std::move( value ), 0 } );
      return true;
   }
   bool open( std::variant<Value, Json::Object, Json::List> content ) {
      open_.push_back( &add( Json{ position_ + 1, std::move( content ), 0 } ) );
      return true;
   }
   bool close() {
      // At its closing bracket, counted from 0; behind it, counted from 1.
      open_.back()->end = position_ + 2;
      open_.pop_back();
      return true;
   }
   // Only the innermost open object or list grows, so the addresses of those around it stay good.
   Json & add( Json json ) {
      inToken_ = false;
      if( open_.empty() ) return root_ = std::move( json );
      if( auto * const list = std::get_if<Json::List>( &open_.back()->content ) ) {
         return list->emplace_back( std::move( json ) );
      }
      if( open_.back()->member( key_ ) ) throw LineError( keyColumn_, "\"" + key_ + "\" stands twice in this object" );
      auto & members = std::get<Json::Object>( open_.back()->content );
      members.push_back( { key_, std::move( json ) } );
      return members.back().json;
   }

   std::string_view const line_;
   std::size_t position_ = 0;
   std::size_t begin_ = 0;  // of the present token
   bool inToken_ = false;
   std::string text_;
   std::string key_;
   std::size_t keyColumn_ = 1;
   Json root_;
   std::vector<Json *> open_;
};

// The parser tells where it is only by what it has taken.
Json parseByBytes( std::string_view line ) {
   boost::json::basic_parser<Builder> parser( boost::json::parse_options(), line );
   boost::json::error_code error;
   std::size_t position = 0;
   for( ; position < line.size() && !error; ++position ) {
      parser.handler().positionIs( position );
      // A byte that the parser leaves, without an error, stands behind a document that is complete.
      bool const taken = parser.write_some( true, line.data() + position, 1, error ) == 1;
      if( !taken && !error ) throw LineError( position + 1, "this is no JSON: the object has ended before" );
   }
   // The loop has already gone one byte on, which makes of the position, counted from 0, the column, counted from 1.
   if( error ) throw LineError( position, "this is no JSON: " + std::string( meaning( error ) ) );
   // Told that nothing more comes, the parser reports a number at the end, or that the line breaks off.
   parser.handler().positionIs( line.size() );
   parser.write_some( false, "", 0, error );
   if( error ) throw LineError( line.size() + 1, "this is no JSON: " + std::string( meaning( error ) ) );
   return parser.handler().take();
}

}  // namespace

Json::Object const & Json::object( char const * wanted ) const {
   if( auto const * const found = std::get_if<Object>( &content ) ) return *found;
   throw LineError( column, std::string( wanted ) + " is wanted here, not " + value().kind() );
}

Json::List const & Json::list( char const * wanted ) const {
   if( auto const * const found = std::get_if<List>( &content ) ) return *found;
   throw LineError( column, std::string( wanted ) + " is wanted here, not " + value().kind() );
}

Json const * Json::member( std::string_view name ) const {
   auto const & members = std::get<Object>( content );
   auto const i = std::find_if( members.begin(), members.end(), [&]( auto const & m ) { return m.name == name; } );
   return i == members.end() ? nullptr : &i->json;
}

Value Json::value() const {
   if( auto const * const scalar = std::get_if<Value>( &content ) ) return *scalar;
   if( auto const * const list = std::get_if<List>( &content ) ) {
      Value::List values;
      for( Json const & element : *list ) values.push_back( element.value() );
      return Value( Value::Content( std::move( values ) ) );
   }
   Value::Object values;
   for( auto const & [name, member] : std::get<Object>( content ) ) values.emplace_back( name, member.value() );
   return Value( Value::Content( std::move( values ) ) );
}

Json parseJson( std::string_view line ) {
   boost::json::basic_parser<Builder> parser( boost::json::parse_options(), line );
   boost::json::error_code error;
   for( std::size_t position = 0; position < line.size() && !error; ) {
      parser.handler().positionIs( position );
      std::size_t const run = parser.handler().run();
      // One that stops short of it, without an error, leaves it to be told below.
      if( parser.write_some( true, line.data() + position, run, error ) != run ) return parseByBytes( line );
      position += run;
   }
   // Where exactly it is wrong is found out byte by byte.
   if( error ) return parseByBytes( line );
   parser.handler().positionIs( line.size() );
   parser.write_some( false, "", 0, error );
   return error ? parseByBytes( line ) : parser.handler().take();
}

}  // namespace Sim
