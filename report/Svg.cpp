#include "report/Svg.h"

#include "kel/QuantityText.h"

namespace Report {

namespace {

std::string entity( char c ) {
   switch( c ) {
      case '<': return "&lt;";
      case '>': return "&gt;";
      case '&': return "&amp;";
      case '"': return "&quot;";
      // XML 1.0 has no way to write most control characters. Bytes of UTF-8 beyond ASCII pass, which is why the char is
      // looked at unsigned.
      default: return static_cast<unsigned char>( c ) < 0x20 ? "\uFFFD" : std::string( 1, c );
   }
}

char const * anchorName( Svg::Anchor anchor ) {
   switch( anchor ) {
      case Svg::Anchor::start: return "start";
      case Svg::Anchor::middle: return "middle";
      case Svg::Anchor::end: return "end";
   }
   return "";
}

}  // namespace

Svg::Svg( double width, double height, std::string_view head ) {
   std::string const w = length( width ), h = length( height );
   document_ = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\"";
   document_ += " width=\"" + w + "\" height=\"" + h + "\" viewBox=\"0 0 " + w + " " + h + "\">\n";
   document_ += head;
}

void Svg::rect( std::string_view cls, Box const & box, std::string_view tip ) {
   open( "rect", cls );
   attribute( "x", box.x );
   attribute( "y", box.y );
   attribute( "width", box.width );
   attribute( "height", box.height );
   close( "rect", tip );
}

void Svg::line( std::string_view cls, double x1, double y1, double x2, double y2 ) {
   open( "line", cls );
   attribute( "x1", x1 );
   attribute( "y1", y1 );
   attribute( "x2", x2 );
   attribute( "y2", y2 );
   close( "line", {} );
}

void Svg::path( std::string_view cls, std::string_view commands, std::string_view tip ) {
   open( "path", cls );
   document_.append( " d=\"" ).append( commands ).append( "\"" );
   close( "path", tip );
}

void Svg::text( std::string_view cls, double x, double y, std::string_view words, Anchor anchor ) {
   open( "text", cls );
   attribute( "x", x );
   attribute( "y", y );
   if( anchor != Anchor::start ) document_.append( " text-anchor=\"" ).append( anchorName( anchor ) ).append( "\"" );
   document_.append( ">" ).append( escaped( words ) ).append( "</text>\n" );
}

std::string Svg::length( double pixels ) {
   std::string const text = Kel::numberText( pixels, 1 );
   // Rounding may leave a minus without a number, and the same picture is to have the same bytes.
   return text == "-0" ? "0" : text;
}

std::string Svg::escaped( std::string_view text ) {
   std::string safe;
   for( char const c : text ) safe += entity( c );
   return safe;
}

void Svg::open( std::string_view element, std::string_view cls ) {
   document_.append( "<" ).append( element ).append( " class=\"" ).append( cls ).append( "\"" );
}

void Svg::attribute( std::string_view name, double pixels ) {
   document_.append( " " ).append( name ).append( "=\"" ).append( length( pixels ) ).append( "\"" );
}

void Svg::close( std::string_view element, std::string_view tip ) {
   if( tip.empty() ) {
      document_ += "/>\n";
      return;
   }
   // An SVG title within the shape, as browsers show it; no script is needed.
   document_.append( "><title>" ).append( escaped( tip ) ).append( "</title></" ).append( element ).append( ">\n" );
}

}  // namespace Report
