// Reflection: what a type of entity is called, which attributes it has, and how to read and write each by name.
//
// Built once per type from the declarations in the class body (kel/Attributes.h); nobody lists attributes a second
// time. The store, the API and the simulator work on this alone. Writes through it are ordinary writes: they notify,
// and an equal value notifies nobody. What does not fit throws AttributeError.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kel/Ptr.h"
#include "kel/Value.h"

namespace Kel {

class Entity;

// One attribute of a type. Which operations it has depends on its kind; the others throw, but for referenced() and
// child(), which give null.
class AttributeInfo {
 public:
   // The keyed kinds stand last, which keyed() relies on.
   enum class Kind {
      scalar,     // one value
      counter,    // one number that is only added to
      reference,  // another entity, by name; read-only
      map,        // values by key
      set,        // keys
      children,   // entities by key
   };

   AttributeInfo( char const * name, Kind kind, std::string typeName, std::string keyTypeName = {},
                  bool passing = false )
      : name_( name ),
        kind_( kind ),
        passing_( passing ),
        typeName_( std::move( typeName ) ),
        keyTypeName_( std::move( keyTypeName ) ) {}
   virtual ~AttributeInfo() = default;

   [[nodiscard]] std::string const & name() const { return name_; }
   [[nodiscard]] Kind kind() const { return kind_; }
   [[nodiscard]] bool keyed() const { return kind_ >= Kind::map; }
   // Whether it changes with every sample: counters, rates and their times.
   [[nodiscard]] bool passing() const { return passing_; }
   [[nodiscard]] std::string const & typeName() const { return typeName_; }        // of the value or the child
   [[nodiscard]] std::string const & keyTypeName() const { return keyTypeName_; }  // empty when not keyed

   // The whole attribute: a value, or an object of all entries in key order.
   [[nodiscard]] virtual Value get( Entity const & e ) const = 0;
   // Sets a scalar, a counter, or merges the entries of an object into a map or set.
   virtual void set( Entity & e, Value const & value ) const;
   // The printed form: like get(), but an enumeration gives its name.
   [[nodiscard]] virtual std::string print( Entity const & e ) const;

   // Keyed attributes. Keys as text, in the order in which people see them.
   [[nodiscard]] virtual std::vector<std::string> keys( Entity const & e ) const;
   [[nodiscard]] virtual Value entry( Entity const & e, std::string_view key ) const;  // null when absent
   virtual void entryIs( Entity & e, std::string_view key, Value const & value ) const;
   virtual void entryDel( Entity & e, std::string_view key ) const;  // absent is no error
   virtual void entryDelAll( Entity & e ) const;

   // References only: what is referred to, null for nothing or for what is no entity.
   [[nodiscard]] virtual Ptr<Entity const> referenced( Entity const & e ) const;

   // Children only. A new child is made but not inserted, so its scalars can be set before anyone sees it.
   [[nodiscard]] virtual Ptr<Entity> child( Entity const & e, std::string_view key ) const;  // null when absent
   [[nodiscard]] virtual Ptr<Entity> newChild( std::string_view key ) const;
   virtual void childIs( Entity & e, Ptr<Entity> const & child ) const;

 protected:
   [[noreturn]] void unsupported( char const * operation ) const;

 private:
   std::string name_;
   Kind kind_;
   bool passing_;
   std::string typeName_;
   std::string keyTypeName_;
};

class TypeInfo {
 public:
   // Makes an entity of the type from the text of its key; none for types that only their owner can make.
   using Factory = std::function<Ptr<Entity>( std::string_view key )>;

   TypeInfo( char const * name, Factory factory ) : name_( name ), factory_( std::move( factory ) ) {}

   [[nodiscard]] std::string const & name() const { return name_; }
   [[nodiscard]] Ptr<Entity> newEntity( std::string_view key ) const;  // throws AttributeError when not constructible

   using Attributes = std::vector<std::unique_ptr<AttributeInfo const>>;
   [[nodiscard]] Attributes const & attributes() const { return attributes_; }
   [[nodiscard]] AttributeInfo const * attribute( std::string_view name ) const;  // null when there is none
   void attributeIs( std::unique_ptr<AttributeInfo const> attribute ) {
      attributes_.push_back( std::move( attribute ) );
   }

 private:
   std::string name_;
   Factory factory_;
   Attributes attributes_;
};

// The process-wide registry of types that can be made by name. Registering a name again replaces its type.
void typeNodeIs( TypeInfo const & type );
void typeNodeDel( TypeInfo const & type );
[[nodiscard]] TypeInfo const * typeNode( std::string_view name );  // null when unknown

// The whole entity as an object, attributes in order of declaration, keyed entries in key order.
[[nodiscard]] Value toValue( Entity const & e );
// Sets what the object names, in its order; unknown names throw. For a child that exists or is still to be inserted.
void setAttributes( Entity & e, Value::Object const & attributes );

}  // namespace Kel
