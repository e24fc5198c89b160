#include "benchmarks/PairedBlocks.hpp"
#include "benchmarks/UploadSink.hpp"

#include "NetTasks/SessionExtension.hpp"
#include "Platform/Concurrency/RunLoop.hpp"
#include "Platform/Networking/CurlURLSession.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>

namespace
{

constexpr std::size_t fileSize = std::size_t{1} << 30;

platform::Awaitable<void> uploadFile(std::shared_ptr<platform::URLSession> session,
                                     platform::URLRequest request, std::filesystem::path file)
{
    auto task = nettasks::asyncUploadTask(session, request, file, false);
    const auto answer = co_await task->resume();
    if (platform::httpStatusCode(answer.response) != 204)
        throw std::runtime_error("The upload got another answer");
}

std::size_t readFile(char* room, std::size_t, std::size_t size, void* descriptor)
{
    const auto length = read(*static_cast<int*>(descriptor), room, size);
    return length < 0 ? CURL_READFUNC_ABORT : static_cast<std::size_t>(length);
}

/// The least that it could cost: libcurl on the calling thread, with the same buffer as ours.
class RawUpload
{
public:
    RawUpload(const std::string& address, const std::filesystem::path& file)
        : descriptor_(open(file.c_str(), O_RDONLY | O_CLOEXEC)),
          easy_(curl_easy_init(), &curl_easy_cleanup),
          headers_(curl_slist_append(curl_slist_append(nullptr, "Expect:"), "Accept:"),
                   &curl_slist_free_all)
    {
        set(CURLOPT_URL, address.c_str());
        set(CURLOPT_UPLOAD, 1L);
        set(CURLOPT_READFUNCTION, &readFile);
        set(CURLOPT_READDATA, &descriptor_);
        set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(fileSize));
        set(CURLOPT_UPLOAD_BUFFERSIZE, 256L * 1024);
        set(CURLOPT_HTTPHEADER, headers_.get());
        set(CURLOPT_NOSIGNAL, 1L);
    }
    RawUpload(const RawUpload&) = delete;
    RawUpload& operator=(const RawUpload&) = delete;
    ~RawUpload() { close(descriptor_); }

    void run()
    {
        long status = 0;
        lseek(descriptor_, 0, SEEK_SET);
        const auto result = curl_easy_perform(easy_.get());
        curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
        if (result != CURLE_OK || status != 204)
            throw std::runtime_error("The raw upload failed");
    }

private:
    template <class Value>
    void set(CURLoption option, Value value)
    {
        curl_easy_setopt(easy_.get(), option, value);
    }

    int descriptor_;
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy_;
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers_;
};

/// The most that the process has ever held, in KiB.
long highestMemory()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void upload(benchmark::State& state)
{
    const UploadSink sink;
    const TemporaryFolder folder;
    const auto file = folder.path() / "file";
    folder.write("file", "");
    std::filesystem::resize_file(file, fileSize);

    const auto loop = std::make_shared<platform::RunLoop>();
    const auto session = std::make_shared<platform::CurlURLSession>();
    const platform::URLRequest request{.url = platform::URL::parse(sink.address()).value(),
                                       .method = "PUT",
                                       .headers = {},
                                       .body = {}};
    RawUpload raw(sink.address(), file);
    raw.run();  // So that what libcurl holds for good is not taken for ours.
    const long before = highestMemory();
    const auto awaited = [&](std::size_t)
    { platform::runToEnd(loop, uploadFile(session, request, file)); };
    awaited(1);
    const long growth = highestMemory() - before;

    compareInBlocks(state, {.goal = 1.05,
                            .measured = {"awaited", 1, awaited},
                            .limit = {"raw libcurl", 1, [&](std::size_t) { raw.run(); }}});
    state.counters["beside growth of memory, KiB"] = static_cast<double>(growth);
}

BENCHMARK(upload)->Name("upload")->Iterations(15)->UseManualTime()->MeasureProcessCPUTime()->Unit(
    benchmark::kMicrosecond);

}  // namespace
