#include "metrics/Metrics.h"

#include <prometheus/text_serializer.h>

#include <algorithm>
#include <iterator>

#include "metrics/Families.h"
#include "metrics/ProcessUsage.h"

namespace Host {

namespace {

// Those that were collected when the scrape began, and then those of the snapshot, one at a time.
class Scrape final : public HttpStream {
 public:
   Scrape( std::vector<prometheus::MetricFamily> collected, Snapshot snapshot )
      : collected_( std::move( collected ) ), snapshot_( std::move( snapshot ) ) {}

   std::string next( std::size_t bytes ) override {
      std::string text;
      while( text.size() < bytes && !ended() ) text += told();
      return text;
   }
   bool ended() const override { return told_ == families().size() + 1; }
   // There is always something until it ends.
   void onMore( std::function<void()> ) override {}

 private:
   std::string told() {
      auto const place = told_++;
      if( place == 0 ) return serializer_.Serialize( std::exchange( collected_, {} ) );
      auto family = families()[place - 1].collected( snapshot_ );
      // One without any series would be no more than its name.
      return family.metric.empty() ? "" : serializer_.Serialize( { std::move( family ) } );
   }

   prometheus::TextSerializer const serializer_;
   std::vector<prometheus::MetricFamily> collected_;
   Snapshot const snapshot_;
   std::size_t told_ = 0;
};

}  // namespace

HttpAnswer Metrics::answer() const {
   auto collected = parts_.counters.collected();
   std::ranges::move( processUsage(), std::back_inserter( collected ) );
   auto snapshot =
      Snapshot::of( parts_.service, parts_.state, *parts_.held, parts_.storeTrouble && parts_.storeTrouble() );
   HttpAnswer answer;
   answer.contentType = "text/plain; version=0.0.4; charset=utf-8";
   answer.stream = std::make_shared<Scrape>( std::move( collected ), std::move( snapshot ) );
   return answer;
}

}  // namespace Host
