#pragma once

#include <cstddef>
#include <string>

/// A text that no memory of the process holds but what is made from it on purpose: it is kept with
/// every bit turned over.
class UniqueText
{
public:
    /// `length` characters, different in each process.
    explicit UniqueText(std::size_t length);

    /// Calls `use` with the text, and wipes it afterwards.
    template <class Use>
    void with(Use use) const
    {
        char text[256];
        write(text);
        use(std::string_view(text, turned_.size()));
        wipe(text);
    }

    /// At how many places of the process's writable memory the text lies now.
    std::size_t occurrences() const;

private:
    void write(char* text) const;
    void wipe(char* text) const;

    std::string turned_;
};
