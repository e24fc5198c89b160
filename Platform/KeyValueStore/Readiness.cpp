#include "Platform/KeyValueStore/Readiness.hpp"

#include <boost/asio/post.hpp>

#include <utility>

namespace platform
{

std::shared_ptr<Readiness> Readiness::begin(const Executor& executor,
                                            std::shared_ptr<Descriptor> descriptor,
                                            std::function<void()> ready)
{
    std::shared_ptr<Readiness> made(
        new Readiness(executor, std::move(descriptor), std::move(ready)));
    // Made here, so that a lack of descriptors is the caller's to hear of.
    made->waiting_.emplace(executor);
    boost::asio::post(executor,
                      [made]
                      {
                          boost::system::error_code error;
                          made->waiting_->assign(made->descriptor_->number(), error);
                          if (!error)
                              made->wait();
                      });
    return made;
}

Readiness::Readiness(const Executor& executor, std::shared_ptr<Descriptor> descriptor,
                     std::function<void()> ready)
    : executor_(executor), descriptor_(std::move(descriptor)), ready_(std::move(ready))
{}

Readiness::~Readiness()
{
    letGo();
}

void Readiness::end()
{
    boost::asio::post(executor_, [self = shared_from_this()] { self->letGo(); });
}

void Readiness::wait()
{
    waiting_->async_wait(boost::asio::posix::stream_descriptor::wait_read,
                         [self = shared_from_this()](const boost::system::error_code& error)
                         {
                             if (error || !self->waiting_)
                                 return;
                             self->ready_();
                             self->wait();
                         });
}

void Readiness::letGo()
{
    if (!waiting_)
        return;
    // Asio would close what is not its own.
    waiting_->release();
    waiting_.reset();
}

}  // namespace platform
