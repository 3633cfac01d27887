#pragma once

#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace quorvane {

// The base of every error the system throws: a kind with a name that scripts can compare, and a
// message for people. The command line prints `what()`; `--json` output adds `kindName()`.
class Error : public std::runtime_error {
 public:
  // The kind's name as the code spells it ("truncated", "foreignUser").
  virtual std::string_view kindName() const = 0;

 protected:
  explicit Error(const std::string& message) : std::runtime_error(message) {}
};

// The payload of errors whose kinds carry no data.
struct NoPayload {
  friend bool operator==(const NoPayload&, const NoPayload&) = default;
};

// An error of one library. `Derived` is the error class itself (so that only errors of one class
// compare); `KindType` is its enumeration, with a name table `Derived::kKindNames` (an EnumNames);
// `Payload` holds what the kinds carry, with defaulted comparison. Two errors are equal when kind,
// payload and message are.
template <class Derived, class KindType, class Payload = NoPayload>
class KindedError : public Error {
 public:
  using Kind = KindType;

  Kind kind() const { return kind_; }
  std::string_view kindName() const override { return Derived::kKindNames.name(kind_); }

  friend bool operator==(const Derived& a, const Derived& b) {
    const KindedError& left = a;
    const KindedError& right = b;
    return left.kind_ == right.kind_ && left.payload_ == right.payload_ &&
           std::string_view(left.what()) == right.what();
  }
  friend std::ostream& operator<<(std::ostream& out, const Derived& error) {
    return out << error.what();
  }

 protected:
  KindedError(Kind kind, Payload payload, const std::string& message)
      : Error(message), kind_(kind), payload_(std::move(payload)) {}

  const Payload& payload() const { return payload_; }

 private:
  Kind kind_;
  Payload payload_;
};

}  // namespace quorvane
