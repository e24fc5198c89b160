#include "Platform/Concurrency/RunLoop.hpp"
#include "tests/support/TwoDeviceKeyValueStore.hpp"

#include <gmock/gmock.h>

using namespace platform;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

namespace
{

struct TwoDevices : testing::Test
{
    using Calls = std::vector<std::vector<std::string>>;

    std::unique_ptr<UbiquitousKeyValueStore::Participant> join(std::size_t device, Calls& calls)
    {
        return network.device(device)->join(executorOf(loop),
                                            [&calls](const ExternalKeyValueChange& change)
                                            { calls.push_back(*change.changedKeys); });
    }

    void write(std::string_view value, std::string_view key)
    {
        writer->setString(value, key);
        EXPECT_TRUE(writer->synchronize());
    }

    std::shared_ptr<RunLoop> loop = std::make_shared<RunLoop>();
    TwoDeviceKeyValueStore network;
    Calls ofWriter, ofNeighbour, ofOther;
    std::unique_ptr<UbiquitousKeyValueStore::Participant> writer = join(0, ofWriter);
    std::unique_ptr<UbiquitousKeyValueStore::Participant> neighbour = join(0, ofNeighbour);
    std::unique_ptr<UbiquitousKeyValueStore::Participant> other = join(1, ofOther);
};

}  // namespace

TEST_F(TwoDevices, AnAnnouncementReachesAllButTheWriterAtItsStep)
{
    write("1", "key");
    EXPECT_THAT(neighbour->string("key"), Optional(std::string("1")));
    EXPECT_EQ(other->string("key"), std::nullopt);
    Calls ofLate;
    const auto late = join(0, ofLate);
    loop->runReady();
    EXPECT_THAT(ofOther, IsEmpty());

    network.deliverAll();
    loop->runReady();

    EXPECT_THAT(other->string("key"), Optional(std::string("1")));
    EXPECT_THAT(ofOther, ElementsAre(ElementsAre("key")));
    EXPECT_THAT(ofNeighbour, ElementsAre(ElementsAre("key")));
    EXPECT_THAT(ofWriter, IsEmpty());
    EXPECT_THAT(ofLate, IsEmpty());
}

TEST_F(TwoDevices, AnnouncementsAreReorderedDuplicatedLostAndMerged)
{
    write("1", "key");
    write("2", "key");
    EXPECT_TRUE(network.deliver(1, 1));
    EXPECT_TRUE(network.duplicate(1));
    EXPECT_TRUE(network.deliver(1));
    loop->runReady();
    EXPECT_THAT(other->string("key"), Optional(std::string("2"))) << "the newest stays";
    EXPECT_THAT(ofOther, testing::SizeIs(2));

    EXPECT_TRUE(network.lose(1));
    write("3", "second");
    EXPECT_TRUE(network.lose(1));
    EXPECT_FALSE(network.lose(1));
    loop->runReady();
    EXPECT_THAT(other->string("second"), Optional(std::string("3")));
    EXPECT_THAT(ofOther, testing::SizeIs(2));

    EXPECT_TRUE(network.deliverMerged(0));
    loop->runReady();
    EXPECT_THAT(ofNeighbour, ElementsAre(ElementsAre("key", "second")));
}
