#include "KestruneKit/DevTools/OutputBuffer.h"

namespace kestrune {

void OutputBuffer::append(std::string_view chunk)
{
    std::lock_guard lock(lock_);
    if (closed_)
        return;
    if (data_.capacity() == 0)
        data_.reserve(appendLimit + 64 * 1024);
    // A chunk that alone passes the limit is cut before it is copied at all.
    if (chunk.size() > appendLimit) {
        data_.assign(chunk.substr(chunk.size() - keptOnTrim));
        trimmed_ = true;
        return;
    }
    data_.append(chunk);
    if (data_.size() > appendLimit) {
        data_.erase(0, data_.size() - keptOnTrim);
        trimmed_ = true;
    }
}

OutputBuffer::Final OutputBuffer::finish()
{
    Final result;
    {
        std::lock_guard lock(lock_);
        closed_ = true;
        result.bytes = std::move(data_);
        result.trimmed = trimmed_;
        data_.clear();
        data_.shrink_to_fit();
    }
    if (result.bytes.size() > finalLimit) {
        result.bytes.erase(0, result.bytes.size() - finalLimit);
        result.trimmed = true;
        auto newline = std::string_view(result.bytes).substr(0, lineSearch).find('\n');
        if (newline != std::string_view::npos)
            result.bytes.erase(0, newline + 1);
    }
    return result;
}

size_t OutputBuffer::size() const
{
    std::lock_guard lock(lock_);
    return data_.size();
}

bool OutputBuffer::isClosed() const
{
    std::lock_guard lock(lock_);
    return closed_;
}

} // namespace kestrune
