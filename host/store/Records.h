// Which records are kept, and how a record and a row of the store become each other.
//
// Kept are the directories below, each with all that it contains: a row for each entity, with its attributes as JSON.
// The rates of a window's interface, which tell nobody when they grow, are a series beside its row, packed. So are the
// numbers of monitors that change with every sample (store/Passing.h). References are not kept: whoever made them makes
// them again. The path of a row is that of the entity in the state database, without the prefix of the first cell:
//
//    maintenance/evidence/window / window / fabric#7 / intf / Ethernet1%2f1
//    mounted path                  attribute and key, down to the entity
//
// What the configuration writes into a kept record is kept, too. The configuration's own records come into step with
// it at the next start, so what is stale goes then.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "dovra/EntityManager.h"
#include "kel/TypeInfo.h"
#include "store/Store.h"

namespace Host::Records {

// The mounted paths of the kept directories. Those that only the service has are made.
[[nodiscard]] std::vector<std::string> kept( Dovra::EntityManager & database );
// As rows name it.
[[nodiscard]] std::string rowPath( std::string_view mounted );

// Whether it is part of its entity's row.
[[nodiscard]] bool inRow( Kel::AttributeInfo const & attribute );
// Whether there is anything to keep but what is below it.
[[nodiscard]] bool hasRow( Kel::Entity const & e, bool mounted );

// The attributes that are in the row, in the order of their declaration; in a directory of entities of any type the
// type's name first. Those of a monitor that change with every sample are not among them.
[[nodiscard]] Kel::Value::Object rowValue( Kel::Entity const & e, bool inDir );

// Makes or fills the record. What contains it must be there, so rows come in the order of their paths. Throws
// Kel::AttributeError for a row that fits no record; the record may be half filled then.
void restore( Dovra::EntityManager const & database, Store::Row const & row );

// Of an entity that may have a series; empty when it has none.
[[nodiscard]] std::string seriesOf( Kel::Entity const & e );
// By the path of the entity, whose row must have been restored, or a list of monitors. Throws Kel::AttributeError.
void restoreSeries( Dovra::EntityManager const & database, std::string const & path, std::string const & bytes );

}  // namespace Host::Records
