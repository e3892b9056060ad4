// Random content for the directories that are kept: every attribute of every type by the reflection, with odd numbers,
// odd texts, and names that have slashes and percent signs in them.
#pragma once

#include <random>
#include <string>

#include "kel/Entity.h"

namespace Host {

class RandomRecords {
 public:
   explicit RandomRecords( unsigned seed ) : random_( seed ) {}

   // Fills what is empty and adds to what is not.
   void fill( Kel::Entity & e );
   // Changes, adds and deletes a few things, here or below.
   void change( Kel::Entity & e );
   [[nodiscard]] bool oneIn( unsigned n ) { return random_() % n == 0; }

 private:
   void scalarIs( Kel::Entity & e, Kel::AttributeInfo const & attribute );
   void entryIs( Kel::Entity & e, Kel::AttributeInfo const & attribute );
   void plainEntryIs( Kel::Entity & e, Kel::AttributeInfo const & attribute );
   void changeEntry( Kel::Entity & e, Kel::AttributeInfo const & attribute );
   [[nodiscard]] Kel::Value like( Kel::Value const & value );
   [[nodiscard]] Kel::Value rates();
   [[nodiscard]] double number();
   [[nodiscard]] std::string text();
   [[nodiscard]] std::string key( std::string const & typeName );

   std::mt19937 random_;
};

}  // namespace Host
