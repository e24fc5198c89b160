#pragma once

#include <string>

#include <sys/types.h>

/// A server on loopback, in a process of its own, that takes every body, looks at nothing of it and
/// answers 204. It ends with this object.
class UploadSink
{
public:
    UploadSink();
    UploadSink(const UploadSink&) = delete;
    UploadSink& operator=(const UploadSink&) = delete;
    ~UploadSink();

    const std::string& address() const { return address_; }

private:
    std::string address_;
    pid_t process_ = -1;
};
