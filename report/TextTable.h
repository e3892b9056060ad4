// A table as text: rows of cells, the first row being the headings; columns are as wide as they must be.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "report/Readable.h"

namespace Report {

class Table {
 public:
   enum class Align { left, right };
   struct Column {
      char const * heading;
      Align align;
   };

   explicit Table( std::vector<Column> columns ) : columns_( std::move( columns ) ) {
      std::vector<std::string> headings;
      for( Column const & column : columns_ ) headings.emplace_back( column.heading );
      add( std::move( headings ) );
   }
   void add( std::vector<std::string> cells ) { rows_.push_back( std::move( cells ) ); }

   [[nodiscard]] std::string text() const {
      std::string lines;
      for( auto const & row : rows_ ) {
         std::string line;
         for( std::size_t i = 0; i < row.size(); ++i ) line += ( i == 0 ? "" : "  " ) + padded( row[i], i );
         // Blanks that pad the last column would only be noise in a diff of two summaries.
         lines += line.erase( line.find_last_not_of( ' ' ) + 1 ) + "\n";
      }
      return lines;
   }

 private:
   [[nodiscard]] std::string padded( std::string const & cell, std::size_t column ) const {
      std::size_t width = 0;
      for( auto const & row : rows_ ) width = std::max( width, columns( row[column] ) );
      // Columns and not bytes: a name may have characters of several.
      std::string const blanks( width - columns( cell ), ' ' );
      return columns_[column].align == Align::left ? cell + blanks : blanks + cell;
   }

   std::vector<Column> const columns_;
   std::vector<std::vector<std::string>> rows_;
};

}  // namespace Report
