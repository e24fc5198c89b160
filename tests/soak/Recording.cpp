#include "tests/soak/Recording.hpp"

#include "tests/soak/WatchedVFS.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <memory>

namespace soak
{
namespace
{

using enum Step::Kind;
using Session = std::vector<Step>;

void carryOut(Recording& recording, const Session& session, const DiskLog& log, State& state)
{
    const auto store = openStore(recording.place, Below::watched);
    Items items(store->items());
    for (const auto& step : session)
    {
        recording.marks.push_back({log.events().size(), step, false});
        const auto status = carryOut(step, items, *store);
        recording.marks.push_back({log.events().size(), step, true});
        if (status != expectedStatus(state, step))
            recording.fault += shown(step) + ": " + shown(status) + " " + store->diagnostics();
        state = after(state, step);
        if (step.kind == changePassphrase)
            recording.place.passphrase = step.number;
    }
}

Recording record(std::string name, std::optional<std::uint64_t> passphrase,
                 const std::vector<Session>& sessions)
{
    const TemporaryFolder folder;
    Recording recording{.name = std::move(name),
                        .place = {.folder = folder.path() / "store", .passphrase = passphrase},
                        .events = {},
                        .marks = {},
                        .fault = {}};
    const auto log = std::make_shared<DiskLog>(folder.path());
    watchFiles(log);
    State state;
    for (const auto& session : sessions)
        carryOut(recording, session, *log, state);
    watchFiles(nullptr);
    recording.events = log->events();
    recording.place.passphrase = passphrase;
    return recording;
}

}  // namespace

Expectation Recording::expectationAt(std::size_t count) const
{
    Expectation expectation;
    if (place.passphrase)
        expectation.setPassphrase(*place.passphrase);
    for (const auto& mark : marks)
    {
        if (mark.events > count)
            break;
        if (mark.ended)
            // The recording was refused if a status was another.
            expectation.acknowledged(mark.step, expectation.expected(mark.step));
        else if (mark.events < count)
            expectation.began(mark.step);
    }
    return expectation;
}

std::string Recording::stepAt(std::size_t count) const
{
    std::string text = "the opening";
    for (const auto& mark : marks)
        if (mark.events < count)
            text = (mark.ended ? "what follows \"" : "\"") + shown(mark.step) + "\"";
    return text;
}

Recording recordWithKeyFile()
{
    return record("key file", std::nullopt,
                  {{{.kind = put, .key = 0, .otherKey = 0, .number = 1},
                    {.kind = add, .key = 1, .otherKey = 0, .number = 2},
                    {.kind = put, .key = 0, .otherKey = 0, .number = 3},
                    {.kind = update, .key = 1, .otherKey = 0, .number = 4},
                    {.kind = remove, .key = 0, .otherKey = 0, .number = 5},
                    {.kind = put, .key = 2, .otherKey = 0, .number = 6}},
                   {{.kind = put, .key = 3, .otherKey = 0, .number = 7},
                    {.kind = put, .key = 1, .otherKey = 0, .number = 8},
                    {.kind = putRefused, .key = 3, .otherKey = 2, .number = 9},
                    {.kind = removeAll, .key = 0, .otherKey = 0, .number = 10},
                    {.kind = add, .key = 4, .otherKey = 0, .number = 11}}});
}

Recording recordWithPassphrase()
{
    return record("passphrase", 0,
                  {{{.kind = put, .key = 0, .otherKey = 0, .number = 1},
                    {.kind = changePassphrase, .key = 0, .otherKey = 0, .number = 2}},
                   {{.kind = put, .key = 0, .otherKey = 0, .number = 3},
                    {.kind = changePassphrase, .key = 0, .otherKey = 0, .number = 4}}});
}

}  // namespace soak
