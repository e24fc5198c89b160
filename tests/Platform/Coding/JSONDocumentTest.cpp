#include "Platform/Coding/JSONDocument.hpp"

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>

#include <gtest/gtest.h>

#include "tests/Platform/Coding/Records.hpp"

namespace
{

using platform::DecodingError;
using platform::JSONDecoder;
using records::Anything;

/// A thread's stack of known size, to be looked at when the thread has ended.
class Stack
{
public:
    Stack()
        : memory_(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))
    {
        if (memory_ == MAP_FAILED)
            throw std::bad_alloc();
    }
    Stack(const Stack&) = delete;
    Stack& operator=(const Stack&) = delete;
    ~Stack() { munmap(memory_, size); }

    void run(void* (*work)(void*), void* argument)
    {
        pthread_attr_t attributes;
        pthread_t thread;
        ASSERT_EQ(pthread_attr_init(&attributes), 0);
        ASSERT_EQ(pthread_attr_setstack(&attributes, memory_, size), 0);
        ASSERT_EQ(pthread_create(&thread, &attributes, work, argument), 0);
        ASSERT_EQ(pthread_join(thread, nullptr), 0);
        pthread_attr_destroy(&attributes);
    }

    std::string_view contents() const { return {static_cast<const char*>(memory_), size}; }

private:
    // What the sanitizers' larger frames need for 512 levels, and too little for thousands.
    static constexpr std::size_t size = 2 * 1024 * 1024;

    void* memory_;
};

struct Decoding
{
    std::string json;
    bool accepted = false;
};

void* decodeAnything(void* argument)
{
    auto& decoding = *static_cast<Decoding*>(argument);
    try
    {
        JSONDecoder().decode<Anything>(std::string_view(decoding.json));
        decoding.accepted = true;
    }
    catch (const DecodingError&)
    {
        decoding.accepted = false;
    }
    return nullptr;
}

std::string repeated(std::string_view text, std::size_t count)
{
    std::string result;
    while (count-- > 0)
        result += text;
    return result;
}

TEST(JSONDocument, Passes512LevelsAndRefusesMoreOnASmallStack)
{
    const struct
    {
        std::string_view open, close;
    } kinds[] = {{"[", "]"}, {R"({"a":)", "}"}};

    for (const auto& kind : kinds)
    {
        for (const std::size_t depth : {511, 512, 513, 100000})
        {
            Decoding decoding{repeated(kind.open, depth) + "1" + repeated(kind.close, depth)};
            Stack().run(decodeAnything, &decoding);
            EXPECT_EQ(decoding.accepted, depth <= 512) << kind.open << depth;
        }
    }
    Decoding unclosed{repeated(R"([{"":)", 50000)};
    Stack().run(decodeAnything, &unclosed);
    EXPECT_FALSE(unclosed.accepted);
}

TEST(JSONDocument, LeavesNoUnescapedTextInItsScratchMemory)
{
    std::string text;
    for (int number = 100; number < 300; ++number)
        text += std::to_string(number);
    Decoding decoding{R"({"x":["\n)" + text + R"("]})"};
    Stack stack;

    stack.run(decodeAnything, &decoding);

    EXPECT_TRUE(decoding.accepted);
    // More than all vector registers hold: those may lie on the stack where the compiler or the
    // dynamic linker saved them.
    EXPECT_EQ(stack.contents().find(text.substr(150, 300)), std::string_view::npos);
}

TEST(JSONDocument, JoinsTextsAroundTheirEscapesHoweverLong)
{
    const std::string part(5000, 'p');
    const std::string json =
        R"(["\n)" + part + R"(\u00e9)" + part + R"(\ud83d\ude00","\t","plain"])";

    const auto texts = JSONDecoder().decode<std::vector<std::string>>(std::string_view(json));

    EXPECT_EQ(texts, (std::vector<std::string>{"\n" + part + "é" + part + "😀", "\t", "plain"}));
}

TEST(JSONDocument, KeepsItsShapeAndItsTextsWhenItOutgrowsTheInlineMemory)
{
    std::string json = "[";
    std::vector<std::string> expected;
    for (int index = 0; index < 1000; ++index)
    {
        json += R"({"k":[[],1,{}],"t":"\n)" + std::to_string(index) + R"("},)";
        expected.push_back('\n' + std::to_string(index));
    }
    json.back() = ']';

    const auto texts = JSONDecoder().decode<std::vector<records::Entry>>(std::string_view(json));

    ASSERT_EQ(texts.size(), expected.size());
    for (std::size_t index = 0; index < expected.size(); ++index)
        EXPECT_EQ(texts[index].t, expected[index]);
}

}  // namespace
