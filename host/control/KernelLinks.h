// This box's links as something that can be switched: what LinkControl decides, the kernel does.
//
// Owned by the agent, and by "maintctl release" where no agent lives. Every answer is the kernel's as it stands at that
// moment, so nothing has to be started or kept up to date. Never waits for more than a kernel in trouble may take.
#pragma once

#include "links/LinkSwitch.h"
#include "linux/LinkSetter.h"

namespace Host {

class KernelLinks final : public Service::LinkSwitch {
 public:
   // Throws Linux::NetlinkError. The questions are asked again where the kernel does not answer at first.
   KernelLinks() = default;

   [[nodiscard]] std::optional<Link> link( Lumo::IntfId intf ) const override;
   [[nodiscard]] std::optional<Link> link( int index ) const override;

   // Refuses to take the loopback down.
   [[nodiscard]] std::string adminUpIs( int index, bool up ) override;

   [[nodiscard]] std::optional<int> keepAddrOnDown( int index ) const override;
   [[nodiscard]] std::string keepAddrOnDownIs( int index, int value ) override;

 private:
   // Its questions use its socket.
   mutable Linux::LinkSetter kernel_;
};

}  // namespace Host
