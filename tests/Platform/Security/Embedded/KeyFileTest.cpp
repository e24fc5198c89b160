#include "Platform/Security/Embedded/FileLayer.hpp"
#include "Platform/Security/Embedded/StoreLock.hpp"
#include "tests/Platform/Security/Embedded/EmbeddedStoreHost.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace
{

using namespace platform;
using enum KeychainStatus;
using testing::HasSubstr;

using Passphrase = std::optional<SecretString>;

Passphrase phrase(std::string_view text)
{
    return SecretString(text);
}

EmbeddedItemStore openedWith(EmbeddedStoreHost& host, Passphrase passphrase)
{
    auto configuration = host.configuration();
    configuration.passphrase = [passphrase] { return passphrase; };
    return EmbeddedItemStore(configuration);
}

std::string valueUnder(EmbeddedStoreHost& host, Passphrase passphrase)
{
    auto store = openedWith(host, std::move(passphrase));
    return valueOf(store, "key");
}

TEST(KeyPassphrase, WrapsTheKeyAndCanBeChangedWhileOthersGoOn)
{
    EmbeddedStoreHost host;
    auto other = host.open();
    ASSERT_EQ(put(other, "key", "value"), success);
    auto store = host.open();

    EXPECT_EQ(store.changePassphrase(std::nullopt, phrase("first")), success);
    EXPECT_EQ(valueUnder(host, phrase("first")), "value");
    EXPECT_EQ(valueUnder(host, phrase("wrong")), "= -25291");
    EXPECT_THAT(host.reported(), HasSubstr("passphrase of the keychain is wrong"));
    EXPECT_EQ(valueUnder(host, std::nullopt), "= -25291");
    EXPECT_THAT(host.reported(), HasSubstr("none was given"));

    EXPECT_EQ(store.changePassphrase(phrase("wrong"), phrase("second")), notAvailable);
    EXPECT_EQ(store.changePassphrase(std::nullopt, phrase("second")), notAvailable);
    EXPECT_EQ(store.changePassphrase(phrase("first"), phrase("")), parameter);
    EXPECT_EQ(valueUnder(host, phrase("first")), "value");

    EXPECT_EQ(store.changePassphrase(phrase("first"), phrase("second")), success);
    EXPECT_EQ(valueUnder(host, phrase("first")), "= -25291");
    EXPECT_EQ(valueUnder(host, phrase("second")), "value");
    EXPECT_EQ(put(other, "key", "later"), success);

    EXPECT_EQ(store.changePassphrase(phrase("second"), std::nullopt), success);
    EXPECT_EQ(valueUnder(host, std::nullopt), "later");
}

TEST(KeyPassphrase, OfAFirstKeyIsNeverEmptyAndMissesOnlyWhereThatIsMeant)
{
    struct Row
    {
        Passphrase given;
        bool mayBePlain;
        KeychainStatus status;
        const char* report;
    };
    for (const auto& row : {Row{phrase(""), false, notAvailable, "empty passphrase"},
                            Row{phrase(""), true, notAvailable, "empty passphrase"},
                            Row{std::nullopt, false, notAvailable, "no passphrase was given"},
                            Row{std::nullopt, true, success, ""}})
    {
        SCOPED_TRACE(row.report);
        EmbeddedStoreHost host;
        auto configuration = host.configuration();
        auto given = row.given;
        configuration.passphrase = [&given] { return given; };
        configuration.firstKeyMayBePlain = row.mayBePlain;
        EmbeddedItemStore store(configuration);

        EXPECT_EQ(put(store, "key", "value"), row.status);
        EXPECT_THAT(host.reported(), HasSubstr(row.report));
        EXPECT_EQ(std::filesystem::exists(host.places.key), row.status == success);

        given = phrase("given at last");
        EXPECT_EQ(put(store, "key", "value"), success) << host.reported();
        store.close();
        EXPECT_EQ(valueUnder(host, std::nullopt),
                  row.mayBePlain && !row.given ? "value" : "= -25291");
        EXPECT_EQ(valueUnder(host, phrase("given at last")), "value");
    }
}

TEST(KeyPassphrase, IsTypedWithoutUsingUpThePatience)
{
    using Clock = std::chrono::steady_clock;
    EmbeddedStoreHost host;
    auto configuration = host.configuration();
    configuration.patience = std::chrono::milliseconds(200);
    configuration.firstKeyMayBePlain = true;
    const Patience none(std::chrono::milliseconds(0));
    std::optional<StoreLock> rival;
    Clock::time_point typed;
    configuration.passphrase = [&]() -> Passphrase
    {
        std::this_thread::sleep_for(configuration.patience);
        rival.emplace(host.places.lock, none);
        typed = Clock::now();
        return std::nullopt;
    };
    EmbeddedItemStore store(configuration);

    EXPECT_EQ(put(store, "key", "value"), notAvailable);

    EXPECT_GE(Clock::now() - typed, std::chrono::milliseconds(190));
    EXPECT_THAT(host.reported(), HasSubstr("Another program holds the store"));
}

/// Fails one call, the `failing`th of all that change something.
class FailingFiles final : public FileLayer
{
public:
    FailingFiles(int failing, int error) : left_(failing), error_(error) {}
    bool hasFailed() const { return left_ <= 0; }

    int makeFolder(const std::filesystem::path& folder) override
    {
        return fails() ? -1 : FileLayer::makeFolder(folder);
    }
    int createExclusively(const std::filesystem::path& file) override
    {
        return fails() ? -1 : FileLayer::createExclusively(file);
    }
    ssize_t write(int descriptor, std::span<const std::byte> bytes) override
    {
        // What is written is cut short, too.
        if (!fails())
            return FileLayer::write(descriptor, bytes.first((bytes.size() + 1) / 2));
        return -1;
    }
    int sync(int descriptor) override { return fails() ? -1 : FileLayer::sync(descriptor); }
    int link(const std::filesystem::path& from, const std::filesystem::path& to) override
    {
        return fails() ? -1 : FileLayer::link(from, to);
    }
    int rename(const std::filesystem::path& from, const std::filesystem::path& to) override
    {
        return fails() ? -1 : FileLayer::rename(from, to);
    }
    int syncFolder(const std::filesystem::path& folder) override
    {
        return fails() ? -1 : FileLayer::syncFolder(folder);
    }

private:
    bool fails()
    {
        errno = error_;
        return --left_ == 0;
    }

    int left_;
    int error_;
};

TEST(KeyFile, AFirstStartThatFailsAnywhereIsReportedAndMadeGoodByTheNext)
{
    int failures = 0;
    for (bool failed = true; failed; ++failures)
    {
        EmbeddedStoreHost host;
        const bool full = failures % 2 == 0;
        const auto files = std::make_shared<FailingFiles>(failures + 1, full ? ENOSPC : EIO);
        auto configuration = host.configuration();
        configuration.files = files;
        EmbeddedItemStore store(configuration);

        const auto status = put(store, "key", "value");

        failed = files->hasFailed();
        EXPECT_EQ(status, !failed ? success : full ? diskFull : inputOutput) << failures;
        EXPECT_EQ(host.reported().empty(), !failed);
        EXPECT_EQ(put(store, "key", "value"), success) << host.reported();
        auto other = host.open();
        EXPECT_EQ(valueOf(other, "key"), "value");
    }
    EXPECT_GT(failures, 20);
}

TEST(KeyFile, APassphraseChangeThatFailsAnywhereLeavesTheOldOneOrTheNewOne)
{
    int failures = 0;
    for (bool failed = true; failed; ++failures)
    {
        EmbeddedStoreHost host;
        keep(host);
        const auto files = std::make_shared<FailingFiles>(failures + 1, EIO);
        auto configuration = host.configuration();
        configuration.files = files;
        EmbeddedItemStore store(configuration);

        const auto status = store.changePassphrase(std::nullopt, phrase("new"));

        failed = files->hasFailed();
        EXPECT_EQ(status, failed ? inputOutput : success);
        EXPECT_EQ(valueUnder(host, phrase("new")), "value") << host.reported();
        EXPECT_FALSE(std::filesystem::exists(host.places.keyDraft));
    }
    EXPECT_GT(failures, 4);
}

}  // namespace
