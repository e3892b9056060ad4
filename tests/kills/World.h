// A box that outlives the agents on it: the kernel's links, the clocks, what the operator is doing, and who is to die
// when.
//
// It lies in memory that processes share. Each agent is a process of its own, and dies as such: by SIGKILL, from inside
// itself, at a moment that was chosen before. Moments are the points that agents have passed in this life, counted.
// Plain values only: a process that dies leaves nothing half made but what it was told to.
#pragma once

#include <string>
#include <string_view>

#include "Points.h"

namespace Kills {

constexpr unsigned noMoment = ~0u;

struct Link {
   std::array<char, 16> name;
   int index;
   bool wanted;  // what everybody but the agent has last made of it; so it is after a start of the machine
   bool adminUp;
   bool carrier;
   bool takenDown;  // by the agent, and not set up since
   bool raised;     // by others while the agent held it down, at some time
   int keepAddr;
   int downs, ups;  // by the agent
   double bitsPerSecond;

   [[nodiscard]] bool up() const { return adminUp && carrier; }
};

class World {
 public:
   // Shared with all processes that are forked from here on. Lives for ever.
   static World & make();
   void begin( bool preserveIpv6 );

   // The process ends here if this is the moment.
   void pass( PointSet at );
   // The first thing that an agent did and may not do.
   void faultIs( std::string_view text );

   [[nodiscard]] Link * link( std::string_view name );
   // Another program, or a person.
   void setByOthers( Link & link, bool up );
   // Made again under its name.
   void remade( Link & link );
   void machineStarts();

   [[nodiscard]] double bootTime() const { return now - bootedAt; }  // s, the kernel's clock
   [[nodiscard]] std::string boot() const { return "boot " + std::to_string( boots ); }

   static constexpr unsigned linkCount = 6;
   static constexpr unsigned momentsMax = 4096;
   static constexpr unsigned stepsMax = 24;

   double now;  // s, the wall clock
   double bootedAt;
   unsigned boots;
   bool preserveIpv6;
   std::array<Link, linkCount> links;
   int lastIndex;

   // Of the operator, who goes on where the agent has died.
   unsigned step;
   bool begun, answered, over;
   double settledAt;                                    // s, when the step is looked at
   std::array<std::array<char, 4096>, stepsMax> views;  // what was seen at the end of each

   unsigned moment;  // how many were passed
   unsigned dieAt, dieAgainAt;
   std::array<PointSet, momentsMax> passed;
   std::array<char, 256> fault;
};

}  // namespace Kills
