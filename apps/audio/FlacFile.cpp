// SPDX-License-Identifier: MIT
#include "audio/FlacFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <utility>

#include <sndfile.h>

#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

/// A file in memory, for libsndfile to write.
struct MemoryFile
{
    std::string bytes;
    std::size_t position = 0;
};

MemoryFile& fileOf(void* user)
{
    return *static_cast<MemoryFile*>(user);
}

sf_count_t seekIn(MemoryFile& file, sf_count_t offset, int origin)
{
    const std::size_t base = origin == SEEK_SET ? 0 : origin == SEEK_CUR ? file.position : file.bytes.size();
    file.position = static_cast<std::size_t>(static_cast<sf_count_t>(base) + offset);
    return static_cast<sf_count_t>(file.position);
}

sf_count_t writeTo(MemoryFile& file, const void* bytes, sf_count_t count)
{
    const auto size = static_cast<std::size_t>(count);
    file.bytes.resize(std::max(file.bytes.size(), file.position + size));
    file.bytes.replace(file.position, size, static_cast<const char*>(bytes), size);
    file.position += size;
    return count;
}

SF_VIRTUAL_IO callbacks()
{
    SF_VIRTUAL_IO calls{};
    calls.get_filelen = [](void* user) { return static_cast<sf_count_t>(fileOf(user).bytes.size()); };
    calls.seek = [](sf_count_t offset, int origin, void* user)
    { return seekIn(fileOf(user), offset, origin); };
    calls.read = [](void*, sf_count_t, void*) { return sf_count_t{0}; };
    calls.write = [](const void* bytes, sf_count_t count, void* user)
    { return writeTo(fileOf(user), bytes, count); };
    calls.tell = [](void* user) { return static_cast<sf_count_t>(fileOf(user).position); };
    return calls;
}

} // namespace

std::string flacFile(std::span<const std::int16_t> samples, unsigned channels, unsigned sampleRate)
{
    MemoryFile file;
    SF_VIRTUAL_IO calls = callbacks();
    SF_INFO info{};
    info.samplerate = static_cast<int>(sampleRate);
    info.channels = static_cast<int>(channels);
    info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
    const auto closer = [](SNDFILE* sound) { sf_close(sound); };
    std::unique_ptr<SNDFILE, decltype(closer)> sound(sf_open_virtual(&calls, SFM_WRITE, &info, &file),
                                                     closer);
    const auto count = static_cast<sf_count_t>(samples.size());
    if (!sound || sf_write_short(sound.get(), samples.data(), count) != count)
        throw Failure("The sound cannot be encoded as FLAC: " + asReason(sf_strerror(sound.get())) + ".");
    sound.reset();
    return std::move(file.bytes);
}

} // namespace tonwerk::app
