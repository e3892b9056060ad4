// A list that mostly has one element, which then stands in the list itself: no memory of its own, and no way there.
//
// T is small, and T{} stands for no element: a list never holds one.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace Kel {

template<class T>
class Few {
 public:
   Few() = default;
   Few( Few && ) noexcept = default;
   Few & operator=( Few && ) noexcept = default;
   Few( Few const & other )
      : one_( other.one_ ), more_( other.more_ ? std::make_unique<std::vector<T>>( *other.more_ ) : nullptr ) {}
   Few & operator=( Few const & ) = delete;
   ~Few() = default;

   [[nodiscard]] std::size_t size() const { return more_ ? more_->size() : one_ == T{} ? 0 : 1; }
   [[nodiscard]] bool empty() const { return size() == 0; }
   [[nodiscard]] T const * begin() const { return more_ ? more_->data() : &one_; }
   [[nodiscard]] T const * end() const { return begin() + size(); }
   [[nodiscard]] T const & front() const { return *begin(); }

   void add( T const & element ) {
      if( empty() && !more_ ) {
         one_ = element;
         return;
      }
      if( !more_ ) more_ = std::make_unique<std::vector<T>>( 1, std::exchange( one_, T{} ) );
      more_->push_back( element );
   }
   void remove( T const & element ) {
      if( more_ ) {
         std::erase( *more_, T( element ) );  // a copy: the caller's may be one of these
      } else if( one_ == element ) {
         one_ = T{};
      }
   }
   void clear() {
      one_ = T{};
      more_.reset();
   }
   template<class I>
   void assign( I first, I last ) {
      clear();
      for( ; first != last; ++first ) add( *first );
   }

 private:
   T one_{};
   std::unique_ptr<std::vector<T>> more_;
};

}  // namespace Kel
