// The history of what has happened: a bounded number of events, in the order in which they did.
//
// There is one in an agent. Made by the host, which has something to tell before there is a service, or else by the
// service; told by everybody. Read by whoever tells operators: the API's streams, the system log. Somebody who comes
// late, or was away for a while, reads on after the number where he stopped, as long as that is not forgotten.
//
// Numbers grow. They come from whoever keeps them from repeating when the agent starts again, and may jump. The history
// begins after a number of its own, and has nothing of what was told before.
//
// A listener hears of an event when it is in the history, and in the order of numbers: what a listener itself causes to
// be told reaches all the others after the event that caused it. It may do anything but destroy the log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "events/Events.h"

namespace Service {

class EventLog {
 public:
   static constexpr std::size_t eventsMax = 10'000;
   static constexpr std::size_t bytesMax = 8 * 1024 * 1024;  // of their texts and lines
   static constexpr std::size_t textMax = 4096;              // bytes; what is longer is cut

   // An event as it is kept. When a unit enters, each of thousands of interfaces has some, so it has no text of its own
   // but the one that is told, which most of them share.
   class Entry {
    public:
      Entry( Told const & what, Kel::String8 text, uint64_t seq, double time, double wallTime );

      [[nodiscard]] uint64_t seq() const { return seq_; }
      [[nodiscard]] Kel::String8 const & text() const { return text_; }
      // Made for whoever asks.
      [[nodiscard]] Event event() const;
      // As JSON, with the line's end. Made when somebody reads it first, and the same for all who do.
      [[nodiscard]] std::string const & line() const;

    private:
      uint64_t seq_;
      double time_;
      double wallTime_;
      Kel::String8 unit_;
      Kel::String8 text_;
      uint32_t generation_;
      Lumo::IntfId interface_;
      EventKind kind_;
      Severity severity_;
      mutable std::unique_ptr<std::string const> line_;  // null: nobody has read it
   };

   // Hears of each event from now on, for as long as it lives; which may be until it is called.
   class Listener {
    public:
      using Act = std::function<void( Event const & )>;

      Listener( EventLog & log, Act act );
      ~Listener();
      Listener( Listener const & ) = delete;
      Listener & operator=( Listener const & ) = delete;

    private:
      friend class EventLog;

      EventLog & log_;
      std::shared_ptr<Act const> const act_;  // shared with the call under way
      uint64_t const since_;
   };

   // `nextNumber`: empty for numbers from 1 on. `wallClockOffset`: s to add to Kel::now() for Unix time; empty: the
   // clock is invented.
   explicit EventLog( std::function<uint64_t()> nextNumber = {}, std::function<double()> wallClockOffset = {} );
   EventLog( EventLog const & ) = delete;
   EventLog & operator=( EventLog const & ) = delete;

   // In a turn.
   void tell( Told const & what );

   // The number of the latest event, or after which the first will come.
   [[nodiscard]] uint64_t last() const { return last_; }
   // Of the oldest that is kept. Whoever goes on after the number before it misses none that is.
   [[nodiscard]] uint64_t oldest() const { return entries_.empty() ? last_ + 1 : entries_.front().seq(); }
   // Whether all that was told after that number is here. Not so of one that is yet to come, either: it is of another
   // history.
   [[nodiscard]] bool has( uint64_t after ) const { return after >= forgotten_ && after <= last_; }
   // The first event after that number; null when there is none. Until the next event is told.
   [[nodiscard]] Entry const * next( uint64_t after ) const;

 private:
   void keep( Entry entry );
   [[nodiscard]] Kel::String8 sharedText( Told const & what );
   void deliver();
   void deliver( Event const & event );

   std::function<uint64_t()> const nextNumber_;
   std::function<double()> const wallClockOffset_;
   double time_ = -1;  // s, of the latest event, as is this
   double wallTime_ = 0;
   std::deque<Entry> entries_;
   std::map<EventKind, Kel::String8> texts_;  // the latest of each kind
   std::size_t bytes_ = 0;
   uint64_t last_;
   uint64_t forgotten_;  // all after this number is kept
   uint64_t delivered_;
   bool delivering_ = false;
   std::vector<Listener *> listeners_;  // null: gone during a delivery
};

}  // namespace Service
