#include "Platform/Security/Authentication/PasscodeVault.hpp"

#include <cmath>
#include <new>
#include <utility>

namespace platform
{
namespace
{

KeychainIdentity recordIdentity()
{
    return {.service = "net.ostra.Tessera.passcode",
            .account = "record",
            .accessGroup = std::string(internalAccessGroup),
            .synchronizable = false};
}

KeychainStatus judge(const SecretBytes* stored, PasscodeRecord& record)
{
    if (!stored || stored->empty())
        return KeychainStatus::itemNotFound;
    const auto read = PasscodeRecord::read(stored->view());
    if (!read)
        return KeychainStatus::damaged;
    record = *read;
    return KeychainStatus::success;
}

}  // namespace

void report(const DiagnosticSink& sink, const char* area, std::string cause, std::string nextStep)
{
    if (sink)
        sink({.area = area, .cause = std::move(cause), .nextStep = std::move(nextStep)});
}

PasscodeVault::PasscodeVault(ItemStore& store, const ProtectionServices& services)
    : store_(store), services_(services)
{}

KeychainStatus PasscodeVault::tell(KeychainStatus status, std::string cause,
                                   std::string nextStep) const
{
    report(services_.diagnostics, "passcode", std::move(cause), std::move(nextStep));
    return status;
}

KeychainStatus PasscodeVault::tooLittleMemory() const
{
    return tell(KeychainStatus::notAvailable,
                "There is not enough memory to try a passcode, which takes some on purpose.",
                "Close other programs and try again.");
}

KeychainStatus PasscodeVault::tellDamaged() const
{
    return tell(KeychainStatus::damaged,
                "The record of the passcode is damaged or of an unknown version.",
                "Update the program, or restore the store from a copy.");
}

PasscodeVault::Found PasscodeVault::read() const
{
    const auto identity = recordIdentity();
    ItemPattern pattern;
    pattern.service = identity.service;
    pattern.account = identity.account;
    pattern.accessGroups = {identity.accessGroup};
    const auto answer = store_.copyMatching(pattern, ItemContent::attributesAndData, 1);

    Found found{.status = answer.status, .record = {}, .key = nullptr};
    if (found.status != KeychainStatus::success)
        return found;
    found.status = judge(&answer.items.front().data, found.record);
    if (found.status == KeychainStatus::damaged)
        tellDamaged();
    return found;
}

PasscodeVault::Found PasscodeVault::beginTry(bool counting) const
{
    if (!services_.clock)
        return {tell(KeychainStatus::notAvailable, "There is no clock to count tries by.",
                     "Name a clock in the services."),
                {},
                nullptr};

    Found found;
    double wait = 0;
    const auto status = store_.update(recordIdentity(),
                                      [&](const SecretBytes* stored) -> std::optional<SecretBytes>
                                      {
                                          found.status = judge(stored, found.record);
                                          if (found.status != KeychainStatus::success)
                                              return std::nullopt;
                                          auto& tries = found.record.tries;
                                          const auto now = services_.clock->now();
                                          const bool restarted = tries.restartIfSetBack(now);
                                          wait = tries.waitLeft(now);
                                          if (wait <= 0 && counting)
                                              tries.countOne(now);
                                          if (restarted || (wait <= 0 && counting))
                                              return found.record.written();
                                          return std::nullopt;
                                      });

    if (status != KeychainStatus::success)
        found.status = status;
    else if (found.status == KeychainStatus::damaged)
        tellDamaged();
    else if (wait > 0)
        found.status = tell(
            KeychainStatus::authenticationFailed, "Too many wrong passcodes were entered.",
            "Try again in " + std::to_string(static_cast<long>(std::ceil(wait))) + " seconds.");
    return found;
}

KeychainStatus PasscodeVault::mayTry() const
{
    return beginTry(false).status;
}

PasscodeVault::Found PasscodeVault::open(const SecretString& passcode) const
{
    auto found = beginTry(true);
    if (found.status != KeychainStatus::success)
        return found;
    try
    {
        found.key = found.record.open(passcode);
    }
    catch (const std::bad_alloc&)
    {
        forgive(found.record, 1);
        found.status = tooLittleMemory();
        return found;
    }
    if (found.key)
        forgive(found.record, found.record.tries.count);
    else
        found.status = tell(KeychainStatus::authenticationFailed, "The passcode was wrong.",
                            "Enter the right one; after several wrong ones there is a wait.");
    return found;
}

void PasscodeVault::forgive(const PasscodeRecord& tried, std::uint32_t tries) const
{
    // If this fails the store has said why, and the next right passcode clears the count.
    store_.update(recordIdentity(),
                  [&](const SecretBytes* stored) -> std::optional<SecretBytes>
                  {
                      PasscodeRecord record;
                      if (judge(stored, record) != KeychainStatus::success ||
                          record.wrapping != tried.wrapping)
                          return std::nullopt;
                      record.tries.forgive(tries);
                      return record.written();
                  });
}

KeychainStatus PasscodeVault::add(const PasscodeRecord& record) const
{
    auto outcome = KeychainStatus::success;
    const auto status = store_.update(recordIdentity(),
                                      [&](const SecretBytes* stored) -> std::optional<SecretBytes>
                                      {
                                          outcome = stored && !stored->empty()
                                                        ? KeychainStatus::duplicateItem
                                                        : KeychainStatus::success;
                                          if (outcome != KeychainStatus::success)
                                              return std::nullopt;
                                          return record.written();
                                      });
    return status == KeychainStatus::success ? outcome : status;
}

KeychainStatus PasscodeVault::replace(const PasscodeRecord& old,
                                      const PasscodeRecord* replacement) const
{
    auto outcome = KeychainStatus::success;
    const auto status =
        store_.update(recordIdentity(),
                      [&](const SecretBytes* stored) -> std::optional<SecretBytes>
                      {
                          PasscodeRecord record;
                          outcome = judge(stored, record);
                          if (outcome == KeychainStatus::success && record.wrapping != old.wrapping)
                              outcome = KeychainStatus::authenticationFailed;
                          if (outcome != KeychainStatus::success)
                              return std::nullopt;
                          return replacement ? replacement->written() : SecretBytes();
                      });
    if (status != KeychainStatus::success)
        return status;
    if (outcome == KeychainStatus::damaged)
        return tellDamaged();
    if (outcome == KeychainStatus::authenticationFailed)
        tell(outcome, "Another program changed the passcode at the same time.",
             "Try again with the passcode that holds now.");
    return outcome;
}

}  // namespace platform
