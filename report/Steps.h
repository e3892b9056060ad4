// A value that changes by steps, with the moment from which on each held. Steps of no length are kept: two changes in
// one turn are two steps.
#pragma once

#include <vector>

namespace Report {

template<class V>
class Steps {
 public:
   struct Step {
      double since;  // s
      V value;
   };

   // From `now` on, which is not before the step that came last. The value that holds already makes no step.
   void is( double now, V const & value ) {
      if( steps_.empty() || !( steps_.back().value == value ) ) steps_.push_back( { now, value } );
   }

   [[nodiscard]] std::vector<Step> const & all() const { return steps_; }
   [[nodiscard]] bool empty() const { return steps_.empty(); }
   [[nodiscard]] V const & latest() const { return steps_.back().value; }  // not of an empty one

   // Calls `see( from, to, value )` for each step that has a length, the last of them up to `end`.
   template<class See>
   void eachUntil( double end, See const & see ) const {
      for( std::size_t i = 0; i < steps_.size(); ++i ) {
         double const to = i + 1 < steps_.size() ? steps_[i + 1].since : end;
         if( to > steps_[i].since ) see( steps_[i].since, to, steps_[i].value );
      }
   }

 private:
   std::vector<Step> steps_;
};

}  // namespace Report
