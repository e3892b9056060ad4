// The world's links as an agent may touch them, with the points at which it may die around each touch.
#pragma once

#include <set>

#include "World.h"
#include "links/LinkSwitch.h"

namespace Kills {

class Kernel final : public Service::LinkSwitch {
 public:
   // The world outlives this.
   explicit Kernel( World & world ) : world_( world ) {}

   [[nodiscard]] std::optional<Link> link( Lumo::IntfId intf ) const override;
   [[nodiscard]] std::optional<Link> link( int index ) const override;
   [[nodiscard]] std::string adminUpIs( int index, bool up ) override;
   [[nodiscard]] std::optional<int> keepAddrOnDown( int index ) const override;
   [[nodiscard]] std::string keepAddrOnDownIs( int index, int value ) override;

   // Links that have changed since this was asked last.
   [[nodiscard]] std::set<std::string> changed() { return std::exchange( changed_, {} ); }
   void changedIs( std::string const & name ) { changed_.insert( name ); }
   [[nodiscard]] bool quiet() const { return changed_.empty(); }

 private:
   [[nodiscard]] Kills::Link * find( int index ) const;

   World & world_;
   std::set<std::string> changed_;
};

}  // namespace Kills
