// SPDX-License-Identifier: MIT
#include "c/StemQueue.h"

#include <algorithm>
#include <utility>

namespace tonwerk::c
{

void StemQueue::push(Stems&& stems)
{
    if (stems.empty() || stems.front().empty())
        return;
    const std::size_t length = stems.front().size() / 2;
    results.push_back(std::move(stems));
    frames += length;
}

std::size_t StemQueue::read(float* const* targets, std::size_t wanted) noexcept
{
    std::size_t done = 0;
    while (done < wanted && !results.empty())
    {
        const Stems& oldest = results.front();
        const std::size_t length = oldest.front().size() / 2;
        const std::size_t count = std::min(wanted - done, length - position);
        for (std::size_t stem = 0; stem < oldest.size(); ++stem)
            if (targets[stem] != nullptr)
                std::copy_n(oldest[stem].data() + 2 * position, 2 * count, targets[stem] + 2 * done);
        done += count;
        position += count;
        if (position == length)
        {
            results.pop_front();
            position = 0;
        }
    }
    frames -= done;
    return done;
}

} // namespace tonwerk::c
