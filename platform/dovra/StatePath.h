// State by text: every record and attribute of the state database under a path, for whoever works without knowing the
// types (API, simulator, store).
//
//    maintenance/unit/status  /  status     /  fabric  /  state
//    mounted path                attribute     key        attribute of the entry
//
// A path is a list of components, or one text with slashes between them. The components of a mounted path may stand
// alone or joined; below a Kel::Dir comes the name of a child. Paths of what exists once per cell may leave out the
// prefix of the first cell. Keys may have slashes of their own: a component that is no key, or leads nowhere, is joined
// with those after it ("Ethernet1/1"). A key that is not there yet is one component of a list, or all that remains of
// a text.
//
// Unknown mounts and attributes, and keys and values that do not fit, throw Kel::AttributeError, which says where.
// Writes are ordinary writes: they notify.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dovra/EntityManager.h"
#include "kel/TypeInfo.h"

namespace Dovra {

using StateComponents = std::vector<std::string>;

// What a path leads to: an entity, an attribute of it, or the entry of a keyed attribute.
struct StatePlace {
   Kel::Ptr<Kel::Entity> entity;                    // never null
   Kel::AttributeInfo const * attribute = nullptr;  // of the entity; null when the entity itself is meant
   std::optional<std::string> key;                  // of the attribute; there need not be such an entry
   bool below = false;                              // the path goes on below that entry, which is absent
   StateComponents components;                      // as far as `key`, one each for mounted path, names and keys
   [[nodiscard]] std::string text() const;          // the components with slashes between them
};
[[nodiscard]] StatePlace statePlace( EntityManager const & database, StateComponents const & path );
[[nodiscard]] StatePlace statePlace( EntityManager const & database, std::string_view path );

// What is there: an entity or a keyed attribute as an object in key order, a directory as the object of its children.
// Null when the entry or one on the way to it is absent.
[[nodiscard]] Kel::Value stateValue( EntityManager const & database, StateComponents const & path );
[[nodiscard]] Kel::Value stateValue( EntityManager const & database, std::string_view path );

// The names of what comes next where a path leads to no record but ends above some; those at the top for a path of no
// components. In order, none twice; empty where nothing is below.
[[nodiscard]] std::vector<std::string> stateBelow( EntityManager const & database, StateComponents const & path );
// Of a path that leads to nothing: how far it leads, in a sentence, what is there instead, and what was probably meant.
[[nodiscard]] std::string stateAbsence( EntityManager const & database, StateComponents const & path );

// Sets an attribute or an entry. An entity takes an object of attributes, in its order: what is not named stays, keyed
// attributes are merged. An entry of entities that is absent is made; the entities above it must exist.
void stateValueIs( EntityManager const & database, StateComponents const & path, Kel::Value const & value );
void stateValueIs( EntityManager const & database, std::string_view path, Kel::Value const & value );

// Deletes an entry, or, one by one, all entries of a keyed attribute. What is absent is no error.
void stateValueDel( EntityManager const & database, StateComponents const & path );
void stateValueDel( EntityManager const & database, std::string_view path );

}  // namespace Dovra
