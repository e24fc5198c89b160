#include "tools/conformance/NetworkScene.hpp"

#include "Platform/Networking/URLError.hpp"

#include <cstdlib>
#include <fstream>
#include <future>
#include <iterator>
#include <stdexcept>

namespace conformance
{
namespace
{

namespace fs = std::filesystem;

constexpr auto credentials = "default login nobody password netrc-password\n";

std::string classOf(const std::exception_ptr& error)
{
    try
    {
        std::rethrow_exception(error);
    }
    catch (const platform::URLError& known)
    {
        const std::string_view name = known.what();
        return std::string(name.substr(name.find('.') + 1));
    }
    catch (const std::exception& other)
    {
        return std::string("of another kind: ") + other.what();
    }
}

}  // namespace

std::string_view Answer::body() const
{
    if (!completion.body)
        return {};
    const auto bytes = completion.body->view();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string Answer::description() const
{
    if (!error.empty())
        return "the error " + error;
    return "status " + std::to_string(status.value_or(-1)) + " with " +
           std::to_string(body().size()) + " bytes";
}

NetworkScene::NetworkScene()
{
    std::string name = (fs::temp_directory_path() / "tessera-conformance-XXXXXX").string();
    if (!::mkdtemp(name.data()))
        throw std::runtime_error("no temporary folder can be made");
    folder_ = name;
    std::ofstream(folder_ / ".netrc") << credentials;
    fs::current_path(folder_);
    for (const char* variable : {"HOME", "XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"})
        ::setenv(variable, name.c_str(), 1);
    ::setenv("SSLKEYLOGFILE", (folder_ / "keys").c_str(), 1);
    for (const char* variable : {"https_proxy", "HTTPS_PROXY", "http_proxy", "all_proxy",
                                 "ALL_PROXY", "no_proxy", "NO_PROXY"})
        ::unsetenv(variable);
}

NetworkScene::~NetworkScene()
{
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

bool NetworkScene::isUntouched() const
{
    std::ifstream netrc(folder_ / ".netrc");
    std::uintmax_t size = 0;
    // libcurl opens the file for keys, but must not write into it.
    for (const auto& entry : fs::recursive_directory_iterator(folder_))
        size += entry.is_regular_file() ? entry.file_size() : 1;
    return std::string(std::istreambuf_iterator(netrc), {}) == credentials &&
           size == std::string_view(credentials).size();
}

Answer call(platform::CurlURLSession& session, std::string_view address, std::string_view method,
            std::string_view authorization)
{
    platform::URLRequest request{.url = platform::URL::parse(address).value(),
                                 .method = std::string(method)};
    if (!authorization.empty())
        request.addHeader("Authorization", platform::SecretString(authorization));
    if (method == "POST")
        request.body = platform::SecretBytes(asBytes("body"));

    // Shared, because the completion may still be inside `set_value` when the wait is over.
    const auto promise = std::make_shared<std::promise<platform::URLCompletion>>();
    const auto start = std::chrono::steady_clock::now();
    const auto task =
        session.dataTask(std::move(request), [promise](platform::URLCompletion completion)
                         { promise->set_value(std::move(completion)); });
    task->resume();
    Answer answer{.completion = promise->get_future().get()};
    answer.duration = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    if (answer.completion.response)
        answer.status = platform::httpStatusCode(*answer.completion.response);
    if (answer.completion.error)
        answer.error = classOf(answer.completion.error);
    return answer;
}

void require(bool condition, std::string_view expected, std::string_view found)
{
    if (!condition)
        throw Mismatch{std::string(expected), std::string(found)};
}

void requireOrder(const Answer& answer)
{
    constexpr auto longest = callLimit + callLimit / 10;
    require(answer.duration <= longest, "the end within " + std::to_string(longest.count()) + " ms",
            answer.description() + " after " + std::to_string(answer.duration.count()) + " ms");
    const auto& [body, response, error] = answer.completion;
    require(body.has_value() == response.has_value() && response.has_value() == !error,
            "a body and a response, or an error alone", answer.description());
}

}  // namespace conformance
