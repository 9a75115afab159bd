#include "common/meters.h"

#include <algorithm>
#include <utility>

#include "common/assertion.h"
#include "common/text.h"

namespace meter {
namespace {

// Made by the first group, so that it is there for every group's destructor.
std::vector<Group*>& roots() {
  static std::vector<Group*> list;
  return list;
}

}  // namespace

template <typename Member>
void Group::enter(std::vector<Member*>& list, std::type_identity_t<Member>& member) {
  if (!names_.insert(member.name()).second) {
    assertion_failed(text::concat("Two meters are named ", name(), ".", member.name()));
  }
  list.push_back(&member);
}

template <typename Member>
void Group::leave(std::vector<Member*>& list, std::type_identity_t<Member>& member) {
  names_.erase(member.name());
  std::erase(list, &member);
}

Metric::Metric(Group& group, std::string name, std::string unit, std::string description)
    : Object(&group, std::move(name)), unit_(std::move(unit)), description_(std::move(description)) {}

Metric::~Metric() = default;

IntegerCounter::IntegerCounter(Group& group, std::string name, std::string unit, std::string description)
    : Metric(group, std::move(name), std::move(unit), std::move(description)) {
  group.enter(group.values_, *this);
}

IntegerCounter::~IntegerCounter() {
  group()->leave(group()->values_, *this);
}

IntegerGaugeCallback::IntegerGaugeCallback(Group& group, std::string name, std::string unit,
                                           std::string description,
                                           std::unique_ptr<BindBase<std::uint64_t>> callback)
    : Metric(group, std::move(name), std::move(unit), std::move(description)),
      callback_(std::move(callback)) {
  group.enter(group.values_, *this);
}

IntegerGaugeCallback::~IntegerGaugeCallback() {
  group()->leave(group()->values_, *this);
}

Timing::Timing(Group& group, std::string name, std::string unit, std::string description)
    : Metric(group, std::move(name), std::move(unit), std::move(description)) {
  group.enter(group.timings_, *this);
}

Timing::~Timing() {
  group()->leave(group()->timings_, *this);
}

MilliSecondTiming::MilliSecondTiming(Group& group, std::string name, std::string unit,
                                     std::string description)
    : Timing(group, std::move(name), std::move(unit), std::move(description)) {}

MicroSecondTiming::MicroSecondTiming(Group& group, std::string name, std::string unit,
                                     std::string description)
    : Timing(group, std::move(name), std::move(unit), std::move(description)) {}

void Timing::add(std::uint64_t duration) {
  count_ += 1;
  minimum_ = std::min(minimum_, duration);
  maximum_ = std::max(maximum_, duration);
  total_ += duration;
  total_of_squares_ += duration * duration;
}

Group::Group(Group* parent, std::string name) : Object(parent, std::move(name)) {
  if (parent != nullptr) {
    parent->enter(parent->groups_, *this);
  } else {
    roots().push_back(this);
  }
}

Group::~Group() {
  if (group() != nullptr) {
    group()->leave(group()->groups_, *this);
  } else {
    std::erase(roots(), this);
  }
}

const std::vector<Group*>& Group::top_level() {
  return roots();
}

}  // namespace meter
