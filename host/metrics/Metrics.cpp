#include "metrics/Metrics.h"

#include <prometheus/text_serializer.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "metrics/Families.h"
#include "metrics/ProcessUsage.h"

namespace Host {

// Those that were collected when the scrape began, and then those of the snapshot, one at a time.
class Metrics::Scrape final : public HttpStream {
 public:
   Scrape( std::vector<prometheus::MetricFamily> collected, Snapshot snapshot )
      : collected_( std::move( collected ) ), snapshot_( std::move( snapshot ) ) {}

   // The next piece is an error.
   void cutOff() { snapshot_.reset(); }

   std::string next( std::size_t bytes ) override {
      if( !snapshot_ ) throw std::runtime_error( "too many read metrics, and this one has been at it longest" );
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
      auto family = families()[place - 1].collected( *snapshot_ );
      // One without any series would be no more than its name.
      return family.metric.empty() ? "" : serializer_.Serialize( { std::move( family ) } );
   }

   prometheus::TextSerializer const serializer_;
   std::vector<prometheus::MetricFamily> collected_;
   std::optional<Snapshot> snapshot_;  // none: it was cut off
   std::size_t told_ = 0;
};

HttpAnswer Metrics::answer() {
   std::erase_if( scrapes_, []( auto const & scrape ) { return scrape.expired(); } );
   if( scrapes_.size() == scrapesMax ) {
      scrapes_.front().lock()->cutOff();
      scrapes_.pop_front();
   }
   auto collected = parts_.counters.collected();
   std::ranges::move( processUsage(), std::back_inserter( collected ) );
   auto snapshot =
      Snapshot::of( parts_.service, parts_.state, *parts_.held, parts_.storeTrouble && parts_.storeTrouble() );
   HttpAnswer answer;
   answer.contentType = "text/plain; version=0.0.4; charset=utf-8";
   auto const scrape = std::make_shared<Scrape>( std::move( collected ), std::move( snapshot ) );
   scrapes_.push_back( scrape );
   answer.stream = scrape;
   return answer;
}

}  // namespace Host
