#include "config/YamlValue.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <utility>

#include <yaml-cpp/eventhandler.h>

#include "kel/NearMiss.h"

namespace Service::Config {

namespace {

// The library counts from 0.
[[nodiscard]] Position positionOf( YAML::Mark const & mark ) { return { mark.line + 1, mark.column + 1 }; }

[[nodiscard]] Value valueOf( YAML::Node const & node, Position owner ) {
   // The parser places an empty value at whatever comes after it, which may be lines below.
   if( node.IsNull() ) return { node, owner, owner };
   return { node, positionOf( node.Mark() ), owner };
}

[[nodiscard]] std::string_view kindOf( YAML::Node const & node ) {
   if( node.IsMap() ) return "a mapping";
   if( node.IsSequence() ) return "a list";
   if( node.IsScalar() ) return "a single value";
   return "nothing";
}

[[nodiscard]] std::nullopt_t refuse( Value const & value, std::string_view expected, Problems & problems ) {
   addProblem( problems, value.at,
               "expected " + std::string( expected ) + ", found " + std::string( kindOf( value.node ) ) );
   return std::nullopt;
}

// Listens for where documents begin and drops what they hold. Loading all documents of a text would not do: on a stray
// ',' between two of them the library never ends, since it takes that for one empty document after another.
class DocumentStarts final : public YAML::EventHandler {
 public:
   [[nodiscard]] Position last() const { return last_; }

   void OnDocumentStart( YAML::Mark const & mark ) override { last_ = positionOf( mark ); }
   void OnDocumentEnd() override {}
   void OnNull( YAML::Mark const &, YAML::anchor_t ) override {}
   void OnAlias( YAML::Mark const &, YAML::anchor_t ) override {}
   void OnScalar( YAML::Mark const &, std::string const &, YAML::anchor_t, std::string const & ) override {}
   void OnSequenceStart( YAML::Mark const &, std::string const &, YAML::anchor_t, YAML::EmitterStyle::value ) override {
   }
   void OnSequenceEnd() override {}
   void OnMapStart( YAML::Mark const &, std::string const &, YAML::anchor_t, YAML::EmitterStyle::value ) override {}
   void OnMapEnd() override {}

 private:
   Position last_;
};

void refuseRepeatedKeys( std::vector<Entry> const & entries, Problems & problems ) {
   std::map<std::string_view, int> firstLine;
   for( Entry const & entry : entries ) {
      auto const [first, isNew] = firstLine.emplace( entry.key, entry.at.line );
      if( isNew ) continue;
      addProblem( problems, entry.at,
                  "'" + entry.key + "' is given twice, first at line " + std::to_string( first->second ) );
   }
}

// YAML takes no tab in an indent, and the library blames something else for it.
bool tabIndents( std::string const & text, int where ) {
   size_t const stop = std::min( text.size(), static_cast<size_t>( std::max( where, 0 ) ) );
   size_t const newline = stop == 0 ? std::string::npos : text.rfind( '\n', stop - 1 );
   size_t const begin = newline == std::string::npos ? 0 : newline + 1;
   return text.substr( begin, text.find_first_not_of( " \t", begin ) - begin ).find( '\t' ) != std::string::npos;
}

}  // namespace

// The cast, because char may be signed and the bytes of UTF-8 would be negative then.
bool isControl( char c ) { return static_cast<unsigned char>( c ) < 0x20 || c == 0x7f; }

void addProblem( Problems & problems, Position at, std::string text ) {
   std::ranges::replace_if( text, isControl, '?' );
   problems.push_back( { at.line, at.column, std::move( text ) } );
}

Value documentOf( std::string const & text, Problems & problems ) {
   Value document = valueOf( YAML::Load( text ), {} );
   // Load() looks at the first document only and says nothing of others. Somebody who joined two files is told so,
   // instead of running with half of them.
   std::istringstream stream( text );
   YAML::Parser parser( stream );
   DocumentStarts starts;
   bool const isMore = parser.HandleNextDocument( starts ) && parser.HandleNextDocument( starts );
   if( isMore ) addProblem( problems, starts.last(), "the document has ended before this; a file holds only one" );
   return document;
}

void addSyntaxProblem( Problems & problems, YAML::Exception const & fault, std::string const & text ) {
   // The library counts from 0, and has no place for some errors.
   bool const placed = !fault.mark.is_null();
   addProblem( problems, placed ? Position{ fault.mark.line + 1, fault.mark.column + 1 } : Position{},
               "this is not YAML: " + fault.msg +
                  ( placed && tabIndents( text, fault.mark.pos )
                       ? "; this line is indented by a tab, where only blanks may stand"
                       : "" ) );
}

std::optional<std::vector<Entry>> entriesOf( Value const & value, Problems & problems ) {
   if( !value.node.IsMap() ) return refuse( value, "a mapping of 'key: value'", problems );
   std::vector<Entry> entries;
   for( auto const & pair : value.node ) {
      Value const key = valueOf( pair.first, value.at );
      // A list or mapping as a key has become a problem in textOf() and can be no field.
      if( auto const name = textOf( key, problems ) ) {
         entries.push_back( { *name, key.at, valueOf( pair.second, key.at ) } );
      }
   }
   refuseRepeatedKeys( entries, problems );
   return entries;
}

std::optional<std::vector<Value>> itemsOf( Value const & value, Problems & problems ) {
   if( !value.node.IsSequence() ) return refuse( value, "a list like [a, b]", problems );
   std::vector<Value> items;
   for( auto const & item : value.node ) items.push_back( valueOf( item, value.at ) );
   return items;
}

std::optional<std::string> textOf( Value const & value, Problems & problems ) {
   if( !value.node.IsScalar() ) return refuse( value, "a single value", problems );
   return value.node.Scalar();
}

std::optional<bool> booleanOf( Value const & value, Problems & problems ) {
   bool answer = false;
   if( !value.node.IsScalar() ) return refuse( value, "true or false", problems );
   // Takes yes, on and y as well, as is common in YAML.
   if( YAML::convert<bool>::decode( value.node, answer ) ) return answer;
   addProblem( problems, value.at, "expected true or false, found '" + value.node.Scalar() + "'" );
   return std::nullopt;
}

std::string suggestion( std::string_view given, std::span<std::string_view const> names ) {
   std::string_view const near = Kel::nearMiss( given, names );
   return near.empty() ? "" : "; did you mean '" + std::string( near ) + "'?";
}

std::string suggestion( std::string_view given, std::span<std::string const> names ) {
   std::vector<std::string_view> const views( names.begin(), names.end() );
   return suggestion( given, std::span<std::string_view const>( views ) );
}

}  // namespace Service::Config
