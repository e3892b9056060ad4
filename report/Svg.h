// Writes an SVG 1.1 document, shape by shape. How shapes look is said once, in the style sheet, by class.
//
// Lengths are pixels, from the left and the top, in tenths. Text is escaped here and nowhere else.
#pragma once

#include <string>
#include <string_view>

namespace Report {

class Svg {
 public:
   struct Box {
      double x, y, width, height;
   };
   enum class Anchor { start, middle, end };

   // `head` goes in first as it is: style sheet and definitions.
   Svg( double width, double height, std::string_view head );

   // A tip is what a browser shows while the pointer rests on the shape; empty for none.
   void rect( std::string_view cls, Box const & box, std::string_view tip = {} );
   void line( std::string_view cls, double x1, double y1, double x2, double y2 );
   // Path commands, in absolute coordinates.
   void path( std::string_view cls, std::string_view commands, std::string_view tip = {} );
   void text( std::string_view cls, double x, double y, std::string_view words, Anchor anchor = Anchor::start );

   // The document so far, closed.
   [[nodiscard]] std::string document() const { return document_ + "</svg>\n"; }

   [[nodiscard]] static std::string length( double pixels );
   // Safe in text and attributes; a character that XML does not know becomes U+FFFD.
   [[nodiscard]] static std::string escaped( std::string_view text );

 private:
   void open( std::string_view element, std::string_view cls );
   void attribute( std::string_view name, double pixels );
   void close( std::string_view element, std::string_view tip );

   std::string document_;
};

}  // namespace Report
