// SPDX-License-Identifier: MIT
#include "audio/OggStructure.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <new>
#include <string>

#include <ogg/ogg.h>

namespace tonwerk::app
{

namespace
{

/// Follows the pages of all streams of a file.
class Pages
{
public:
    /// \return Whole as long as nothing is wrong
    OggStructure take(const ogg_page& page)
    {
        const int serial = ogg_page_serialno(&page);
        const long number = ogg_page_pageno(&page);
        const auto known = streams.find(serial);
        if (ogg_page_bos(&page) != 0)
        {
            if (contentBegun || known != streams.end())
                return OggStructure::Chained;
            streams[serial] = {number + 1, ogg_page_eos(&page) != 0};
            return OggStructure::Whole;
        }
        contentBegun = true;
        if (known == streams.end() || known->second.ended || known->second.nextPage != number)
            return OggStructure::Broken;
        known->second = {number + 1, ogg_page_eos(&page) != 0};
        return OggStructure::Whole;
    }

    bool allEnded() const
    {
        return std::all_of(streams.begin(), streams.end(),
                           [](const auto& stream) { return stream.second.ended; });
    }

private:
    struct Stream
    {
        long nextPage;
        bool ended;
    };

    std::map<int, Stream> streams; ///< by serial number
    bool contentBegun = false;     ///< all streams that play together begin before
};

/// Finds the pages of a file and checks their checksums.
class PageReader
{
public:
    explicit PageReader(FileSource& source) : file(source) { ogg_sync_init(&sync); }
    ~PageReader() { ogg_sync_clear(&sync); }

    PageReader(const PageReader&) = delete;
    PageReader& operator=(const PageReader&) = delete;

    enum class Found
    {
        Page,
        End,
        Fault
    };

    Found next(ogg_page& page)
    {
        for (;;)
        {
            const long bytes = ogg_sync_pageseek(&sync, &page);
            if (bytes != 0)
                return bytes > 0 ? Found::Page : Found::Fault;
            if (!fill())
                return sync.fill == sync.returned ? Found::End : Found::Fault;
        }
    }

private:
    bool fill()
    {
        constexpr long atOnce = 65536;
        char* const buffer = ogg_sync_buffer(&sync, atOnce);
        if (buffer == nullptr)
            throw std::bad_alloc();
        const std::size_t count = file.read(buffer, atOnce);
        ogg_sync_wrote(&sync, static_cast<long>(count));
        return count > 0;
    }

    FileSource& file;
    ogg_sync_state sync{};
};

} // namespace

OggStructure oggStructure(FileSource& source)
{
    std::string mark(4, '\0');
    source.seek(0, SEEK_SET);
    if (source.read(mark.data(), mark.size()) != mark.size() || mark != "OggS")
        return OggStructure::None;
    source.seek(0, SEEK_SET);
    PageReader reader(source);
    Pages pages;
    ogg_page page;
    PageReader::Found found = PageReader::Found::Page;
    while ((found = reader.next(page)) == PageReader::Found::Page)
        if (const OggStructure state = pages.take(page); state != OggStructure::Whole)
            return state;
    return found == PageReader::Found::End && pages.allEnded() ? OggStructure::Whole : OggStructure::Broken;
}

} // namespace tonwerk::app
