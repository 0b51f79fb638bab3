#include "Platform/Events/DBus/KnownTargets.h"

namespace qbdkr {
namespace {

constexpr std::size_t mostTargets = 64;

}  // namespace

bool KnownTarget::watchOwner(sd_bus* bus) {
  if (watch) return true;
  sd_bus_slot* slot = nullptr;
  const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
  const int result = sd_bus_add_match_async(bus, &slot, bus::ownerMatch(name).c_str(),
                                            onOwnerChanged, ignore, this);
  watch.reset(slot);
  return result >= 0;
}

bool KnownTarget::findApproved(const std::string& directory, std::string& address) const {
  if (!approved || approved->directory != directory) return false;
  address = approved->address;
  approveLink();
  return true;
}

void KnownTarget::approve(const std::string& directory, const std::string& address) {
  approved = Approved{directory, address};
  approveLink();
}

void KnownTarget::approveLink() const {
  if (hasOpenLink() && approved && approved->address == link->peer())
    link->approveFor(approved->directory);
}

void KnownTarget::forgetBus() {
  watch.reset();
  present = false;
  ++changes;
  introduction = {};
  approved.reset();
}

int KnownTarget::onOwnerChanged(sd_bus_message* message, void* target, sd_bus_error* /*error*/) {
  const char* before = nullptr;
  const char* after = nullptr;
  if (sd_bus_message_read(message, "sss", nullptr, &before, &after) > 0) {
    auto& changed = *static_cast<KnownTarget*>(target);
    changed.present = *after != '\0';
    changed.approved.reset();
    changed.introduction = {};
    ++changed.changes;
    changed.events = 0;
    // The first offer may have ended the owner: the next one is better off without.
    if (*before != '\0')
      changed.hasNoOffer = !changed.hadLink && changed.link && !changed.link->isAnswered();
    // One that comes to a new bus is as a rule that of the connection that outlived the last one.
    changed.hadLink = *before == '\0' && changed.hasOpenLink();
    if (changed.link) changed.link->drop();
    changed.link.reset();
  }
  return 0;
}

bool PresenceQuestion::send(std::shared_ptr<sd_bus> connection) {
  bus = std::move(connection);
  sd_bus_slot* made = nullptr;
  const int result =
      sd_bus_call_method_async(bus.get(), &made, bus::service, bus::objectPath, bus::interfaceName,
                               "NameHasOwner", onAnswer, this, "s", target->name.c_str());
  slot.reset(made);
  return result >= 0;
}

// Answers and signals are handled in the order in which the bus sent them: the last one counts.
int PresenceQuestion::onAnswer(sd_bus_message* message, void* question, sd_bus_error* /*error*/) {
  auto& asked = *static_cast<PresenceQuestion*>(question);
  int present = 0;
  asked.target->present = sd_bus_message_is_method_error(message, nullptr) <= 0 &&
                          sd_bus_message_read(message, "b", &present) > 0 && present != 0;
  asked.done = true;
  return 1;
}

const std::shared_ptr<KnownTarget>& KnownTargets::find(const std::string& identifier) {
  if (latest_ && latest_->identifier == identifier) return latest_;
  const auto known = targets_.find(identifier);
  if (known == targets_.end()) return none_;
  return latest_ = known->second;
}

std::shared_ptr<KnownTarget> KnownTargets::findOrAdd(const std::string& identifier,
                                                     const std::string& name) {
  if (const auto& known = find(identifier)) return known;
  if (targets_.size() >= mostTargets) forgetThoseOnTheBus();
  auto target = std::make_shared<KnownTarget>(identifier, name);
  targets_.emplace(identifier, target);
  return target;
}

void KnownTargets::forgetBus() {
  forgetThoseOnTheBus();
  for (const auto& [identifier, target] : targets_) target->forgetBus();
}

void KnownTargets::forgetThoseOnTheBus() {
  latest_.reset();
  std::erase_if(targets_, [](const auto& entry) {
    KnownTarget& target = *entry.second;
    if (target.hasOpenLink()) return false;
    if (target.link) target.link->drop();
    return true;
  });
}

}  // namespace qbdkr
