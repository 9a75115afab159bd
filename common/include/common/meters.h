// Meters: named statistics that the libraries keep about their own work, in groups. All of them are
// process-wide objects; a metric is constructed after its group, in the same unit, and registers itself
// with it, so that a program can walk all groups and read every value. Single-threaded, like their owners.

#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "common/time.h"

namespace meter {

class Group;

// Anything with a name that may stand in a group.
class Object {
 public:
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  // The owning group; null for a top-level group.
  Group* group() const { return group_; }
  const std::string& name() const { return name_; }

 protected:
  Object(Group* group, std::string name) : group_(group), name_(std::move(name)) {}

 private:
  Group* group_;
  std::string name_;
};

// A metric: a group's member with a unit (empty for plain counts) and a one-line description.
class Metric : public Object {
 public:
  ~Metric() override;

  // The metric's value; 0 for a metric that has no single one.
  virtual std::uint64_t value() const { return 0; }

  const std::string& unit() const { return unit_; }
  const std::string& description() const { return description_; }

 protected:
  Metric(Group& group, std::string name, std::string unit, std::string description);

 private:
  std::string unit_;
  std::string description_;
};

// A count of events or bytes.
class IntegerCounter : public Metric {
 public:
  // Enters itself into the group. The name is short and for machines, and no other member may have it.
  IntegerCounter(Group& group, std::string name, std::string unit, std::string description);
  ~IntegerCounter() override;

  std::uint64_t value() const override { return count_; }
  // Adds to the count, which wraps at 2^64.
  void increment(std::uint64_t amount = 1) { count_ += amount; }

 private:
  std::uint64_t count_ = 0;
};

// A callable that yields an unsigned number; `Bind0` binds a function of no arguments.
template <typename Value>
class BindBase {
 public:
  // The value now.
  virtual Value call() const = 0;
  virtual ~BindBase() = default;
};

template <typename Value>
class Bind0 : public BindBase<Value> {
 public:
  // Binds a function, which may be called any number of times.
  explicit Bind0(Value (*function)()) : function_(function) {}
  Value call() const override { return function_(); }

 private:
  Value (*function_)();
};

// A value that is looked up when it is read.
class IntegerGaugeCallback : public Metric {
 public:
  // Enters itself into the group; asks the callback whenever value() is read, so what that calls must live as
  // long.
  IntegerGaugeCallback(Group& group, std::string name, std::string unit, std::string description,
                       std::unique_ptr<BindBase<std::uint64_t>> callback);
  ~IntegerGaugeCallback() override;

  std::uint64_t value() const override { return callback_->call(); }

 private:
  std::unique_ptr<BindBase<std::uint64_t>> callback_;
};

// Accumulated durations in the unit of the class; value() stays 0.
class Timing : public Metric {
 public:
  ~Timing() override;

  // Adds one measured duration.
  void add(std::uint64_t duration);

  // Durations added so far.
  std::uint64_t count() const { return count_; }
  // The shortest duration; all bits set before the first one.
  std::uint64_t minimum() const { return minimum_; }
  // The longest duration; 0 before the first one.
  std::uint64_t maximum() const { return maximum_; }
  // The sum of all durations.
  std::uint64_t total() const { return total_; }
  // The sum of their squares, in the square of the unit.
  std::uint64_t total_of_squares() const { return total_of_squares_; }

 protected:
  Timing(Group& group, std::string name, std::string unit, std::string description);

 private:
  std::uint64_t count_ = 0;
  std::uint64_t minimum_ = ~std::uint64_t{0};
  std::uint64_t maximum_ = 0;
  std::uint64_t total_ = 0;
  std::uint64_t total_of_squares_ = 0;
};

class MilliSecondTiming : public Timing {
 public:
  MilliSecondTiming(Group& group, std::string name, std::string unit, std::string description);
};

class MicroSecondTiming : public Timing {
 public:
  MicroSecondTiming(Group& group, std::string name, std::string unit, std::string description);
};

// Adds the time from construction to destruction to a timing, however the scope is left.
class ScopedMicroSeconds {
 public:
  // Starts the measurement. The timing must live as long.
  explicit ScopedMicroSeconds(MicroSecondTiming& timing) : timing_(timing) {}
  ~ScopedMicroSeconds() { timing_.add(watch_.elapsed_microseconds()); }
  ScopedMicroSeconds(const ScopedMicroSeconds&) = delete;
  ScopedMicroSeconds& operator=(const ScopedMicroSeconds&) = delete;

 private:
  MicroSecondTiming& timing_;
  timing::StopWatch watch_;
};

// A named set of metrics and groups.
class Group : public Object {
 public:
  // A group of `parent`, or a top-level one when that is null. Two members of a group may not share a name;
  // that aborts the process.
  Group(Group* parent, std::string name);
  ~Group() override;

  // The names of all members, in order; two members may not share a name.
  const std::set<std::string>& names() const { return names_; }
  // The members by kind, in the order in which they were constructed. Not owned.
  const std::vector<Group*>& groups() const { return groups_; }
  const std::vector<Metric*>& values() const { return values_; }
  const std::vector<Timing*>& timings() const { return timings_; }

  // All groups without a parent, in the order in which they were constructed.
  static const std::vector<Group*>& top_level();

 private:
  friend class IntegerCounter;
  friend class IntegerGaugeCallback;
  friend class Timing;

  template <typename Member>
  void enter(std::vector<Member*>& list, std::type_identity_t<Member>& member);
  template <typename Member>
  void leave(std::vector<Member*>& list, std::type_identity_t<Member>& member);

  std::set<std::string> names_;
  std::vector<Group*> groups_;
  std::vector<Metric*> values_;
  std::vector<Timing*> timings_;
};

}  // namespace meter
