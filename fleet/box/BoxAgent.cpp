#include "box/BoxAgent.h"

#include <algorithm>
#include <boost/json/serialize.hpp>
#include <charconv>

#include "kel/QuantityText.h"
#include "orders/Member.h"

namespace Fleet {

namespace json = boost::json;

namespace {

constexpr char const * lifeKey = "life";
constexpr std::string_view workKeys = "order/";
// A request that nobody has answered may still be on its way into maintd for a moment.
constexpr double underWaySeconds = 3;
// What changes all the time, as a rate, is told as often as this at most.
constexpr double detailSeconds = 5;

uint64_t lifeFrom( std::string const & row ) {
   uint64_t life = 0;
   auto const read = std::from_chars( row.data(), row.data() + row.size(), life );
   if( read.ec == std::errc() && read.ptr == row.data() + row.size() ) return life;
   throw MemoryDamaged( "the agent's memory cannot be read: life is \"" + row + "\"" );
}

bool isOn( Maintd::Unit const & unit ) { return unit.status.state == UnitState::active; }

// All that somebody waits for, without what only illustrates it.
UnitStatus essence( UnitStatus unit ) {
   unit.why.clear();
   unit.since = 0;
   unit.unsettled.clear();
   return unit;
}

}  // namespace

BoxAgent::BoxAgent( std::string box, Memory & memory, Maintd & maintd, double heartbeatSeconds, double now )
   : box_( std::move( box ) ), memory_( memory ), maintd_( maintd ), heartbeatSeconds_( heartbeatSeconds ) {
   for( auto const & [key, row] : memory_.rows() ) {
      if( key == lifeKey ) {
         life_ = lifeFrom( row );
      } else if( key.starts_with( workKeys ) ) {
         works_[key.substr( workKeys.size() )] = workFrom( key, row );
      }
   }
   // Larger than that of a life of which the memory was lost, too.
   life_ = std::max( life_ + 1, static_cast<uint64_t>( std::max( now, 0.0 ) ) );
   memory_.commit( { { lifeKey, std::to_string( life_ ) } } );
}

std::string BoxAgent::rowOf( Work const & work ) {
   json::object row = orderValue( work.order );
   row["outcome"] = nameOf( work.outcome );
   row["why"] = work.why;
   row["generationBefore"] = work.generationBefore;
   row["begun"] = work.begun;
   row["proven"] = work.proven;
   return json::serialize( row );
}

BoxAgent::Work BoxAgent::workFrom( std::string const & key, std::string const & row ) {
   try {
      json::value const document = documentIn( row, key );
      Object const in = objectIn( document, key );
      return { .order = orderFrom( in ),
               .outcome = in.word<Outcome>( "outcome" ),
               .why = in.text( "why" ),
               .generationBefore = in.whole( "generationBefore" ),
               .begun = in.number( "begun" ),
               .proven = in.flag( "proven" ) };
   } catch( BadDocument const & fault ) {
      throw MemoryDamaged( std::string( "the agent's memory cannot be read: " ) + fault.what() );
   }
}

void BoxAgent::keep( std::string const & unit, Work const & work ) {
   memory_.commit( { { std::string( workKeys ) + unit, rowOf( work ) } } );
   works_[unit] = work;
}

void BoxAgent::connectedIs( bool connected ) {
   if( connected && !connected_ ) sent_.reset();
   connected_ = connected;
}

void BoxAgent::desiredIs( Desired const & desired ) {
   if( desired.box != box_ ) return;
   for( auto const & [unit, order] : desired.orders ) {
      auto const work = works_.find( unit );
      if( work != works_.end() && order.number <= work->second.order.number ) continue;
      keep( unit, { .order = order } );
   }
}

std::optional<Status> BoxAgent::turn( double now ) {
   seen_ = maintd_.units( now );
   if( seen_.trouble.empty() ) {
      auto const works = works_;
      for( auto const & [unit, work] : works ) {
         // maintd was asked for one unit, and has not answered since: nothing is known of the others, either.
         if( !seen_.trouble.empty() ) break;
         auto const its = seen_.units.find( unit );
         advance( unit, work, its == seen_.units.end() ? nullptr : &its->second, now );
      }
   }
   if( !connected_ ) return std::nullopt;
   Status status = statusAt( now );
   if( !due( status, now ) ) return std::nullopt;
   status.sequence = ++sequence_;
   sent_ = status;
   return status;
}

void BoxAgent::advance( std::string const & unit, Work work, Maintd::Unit const * its, double now ) {
   bool const open = work.outcome == Outcome::none || work.outcome == Outcome::begun;
   if( !its ) {
      if( !open ) return;
      work.outcome = Outcome::refused;
      work.why = "there is no unit \"" + unit + "\" on this box";
      return keep( unit, work );
   }
   if( work.outcome == Outcome::begun && its->generation != work.generationBefore ) {
      // maintd has heard of it, whatever has become of the answer.
      work.outcome = Outcome::carried;
      return keep( unit, work );
   }
   if( open ) return begin( unit, work, *its, now );
   if( work.order.want == Want::maintenance ) goOn( unit, work, *its, now );
}

void BoxAgent::begin( std::string const & unit, Work work, Maintd::Unit const & its, double now ) {
   // Whether this is still the newest order, nobody knows who is cut off.
   if( !connected_ ) return;
   if( work.outcome == Outcome::begun && now - work.begun < underWaySeconds && now >= work.begun ) return;
   bool const there = work.order.want == Want::nothing || ( work.order.want == Want::service && isOn( its ) );
   if( there || now > work.order.expires ) {
      work.outcome = there ? Outcome::carried : Outcome::expired;
      return keep( unit, work );
   }
   work.outcome = Outcome::begun;
   work.begun = now;
   work.generationBefore = its.generation;
   keep( unit, work );
   ask( unit, work, now );
}

void BoxAgent::ask( std::string const & unit, Work work, double now ) {
   Maintd::Reply const reply = work.order.want == Want::service ? maintd_.exit( unit ) : maintd_.enter( unit );
   if( reply.kind == Maintd::Reply::Kind::unknown ) return;
   bool const agreed = reply.kind == Maintd::Reply::Kind::agreed;
   work.outcome = agreed ? Outcome::carried : Outcome::refused;
   work.why = agreed ? "" : reply.why;
   keep( unit, work );
   // What was seen of it is of a moment before.
   seen_ = maintd_.units( now );
}

// A drain that maintd has agreed to.
void BoxAgent::goOn( std::string const & unit, Work work, Maintd::Unit const & its, double now ) {
   bool const waits = its.status.state == UnitState::entering || its.status.state == UnitState::inMaintenance;
   if( work.outcome == Outcome::gaveBack ) {
      // Until maintd has heard of it, and never again: who takes the unit out later means it.
      if( waits && its.generation == work.generationBefore ) static_cast<void>( maintd_.exit( unit ) );
      return;
   }
   if( work.outcome != Outcome::carried ) return;
   if( isOn( its ) ) {
      work.outcome = Outcome::undone;
      work.why = its.status.why;
      return keep( unit, work );
   }
   if( its.status.ready && !work.proven ) {
      work.proven = true;
      return keep( unit, work );
   }
   bool const late = work.order.deadlineSeconds > 0 && now - work.begun > work.order.deadlineSeconds;
   if( !waits || work.proven || !late || work.order.atDeadline != AtDeadline::giveBack ) return;
   work.outcome = Outcome::gaveBack;
   work.why = its.status.why;
   work.generationBefore = its.generation;
   keep( unit, work );
   static_cast<void>( maintd_.exit( unit ) );
}

Status BoxAgent::statusAt( double now ) const {
   Status status{ .box = box_,
                  .life = life_,
                  .time = now,
                  .heartbeatSeconds = heartbeatSeconds_,
                  .trouble = seen_.trouble,
                  .units = {} };
   for( auto const & [name, unit] : seen_.units ) {
      UnitStatus & its = status.units[name] = unit.status;
      auto const work = works_.find( name );
      if( work == works_.end() ) continue;
      its.acknowledged = work->second.order.number;
      its.outcome = work->second.outcome;
      if( !work->second.why.empty() ) its.why = work->second.why;
   }
   // Of a unit that is not there, too: its order is known, and was refused.
   for( auto const & [name, work] : works_ ) {
      if( seen_.units.contains( name ) ) continue;
      status.units[name] = {
         .acknowledged = work.order.number, .outcome = work.outcome, .why = work.why, .unsettled = {} };
   }
   return status;
}

bool BoxAgent::due( Status const & status, double now ) const {
   if( !sent_ || now - sent_->time >= heartbeatSeconds_ || now < sent_->time ) return true;
   if( status.trouble != sent_->trouble || status.units.size() != sent_->units.size() ) return true;
   for( auto const & [name, unit] : status.units ) {
      auto const before = sent_->units.find( name );
      if( before == sent_->units.end() || !( essence( unit ) == essence( before->second ) ) ) return true;
   }
   return status.units != sent_->units && now - sent_->time >= detailSeconds;
}

}  // namespace Fleet
