// Follows the records of one directory: which come and go, and what changes in each.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "kel/Entity.h"

namespace Lives {

class Follow {
 public:
   // `attribute` is null where the record itself came, or has gone; then `record` is null, too. `key` is that of the
   // record in the first case, and in the other that of the changed entry, empty where the attribute is not keyed.
   using Heard =
      std::function<void( Kel::Entity const * record, Kel::AttributeInfo const * attribute, std::string const & key )>;

   // Records that are there already are told of as coming.
   Follow( Kel::Ptr<Kel::Entity const> dir, Heard heard );
   Follow( Follow const & ) = delete;
   Follow & operator=( Follow const & ) = delete;
   ~Follow();

 private:
   class OnDir;
   class OnRecord;

   void recordIs( std::string const & key );

   Kel::Ptr<Kel::Entity const> const dir_;
   Heard const heard_;
   Kel::AttributeInfo const * records_ = nullptr;  // the attribute that holds them
   std::map<std::string, std::unique_ptr<OnRecord>> below_;
   std::unique_ptr<OnDir> onDir_;
};

}  // namespace Lives
