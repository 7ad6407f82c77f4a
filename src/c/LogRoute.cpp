// SPDX-License-Identifier: MIT
#include "c/LogRoute.h"

#include <mutex>
#include <string>
#include <utility>

#include <plog/Appenders/ConsoleAppender.h>
#include <plog/Converters/UTF8Converter.h>
#include <plog/Formatters/TxtFormatter.h>

namespace tonwerk::c
{

namespace
{

thread_local const LogTarget* threadTarget = nullptr;

std::int32_t levelOf(plog::Severity severity)
{
    switch (severity)
    {
    case plog::fatal:
    case plog::error:
        return TONWERK_LOG_ERROR;
    case plog::warning:
        return TONWERK_LOG_WARNING;
    case plog::info:
        return TONWERK_LOG_INFO;
    default:
        return TONWERK_LOG_DEBUG;
    }
}

class Router : public plog::IAppender
{
public:
    void add(const std::shared_ptr<const LogTarget>& target)
    {
        const std::lock_guard lock(mutex);
        newest = target;
    }

    void write(const plog::Record& record) override
    {
        if (threadTarget != nullptr)
            return writeTo(*threadTarget, record);
        const std::shared_ptr<const LogTarget> other = newestTarget();
        writeTo(other ? *other : LogTarget{}, record);
    }

private:
    std::shared_ptr<const LogTarget> newestTarget()
    {
        const std::lock_guard lock(mutex);
        return newest.lock();
    }

    void writeTo(const LogTarget& target, const plog::Record& record)
    {
        if (record.getSeverity() > target.level)
            return;
        if (target.callback == nullptr)
            return console.write(record);
        const std::string text = plog::UTF8Converter::convert(record.getMessage());
        target.callback(target.user, levelOf(record.getSeverity()), text.c_str());
    }

    std::mutex mutex;
    std::weak_ptr<const LogTarget> newest;
    plog::ConsoleAppender<plog::TxtFormatter> console;
};

/// Never destroyed: threads may be logging when the process ends.
Router& router()
{
    static auto* made = new Router;
    return *made;
}

void setUpLog()
{
    static std::once_flag done;
    std::call_once(
        done,
        []
        {
            if (plog::get() == nullptr)
                (new plog::Logger<PLOG_DEFAULT_INSTANCE_ID>(plog::verbose))->addAppender(&router());
        });
}

} // namespace

void addLogTarget(const std::shared_ptr<const LogTarget>& target)
{
    setUpLog();
    router().add(target);
}

LogScope::LogScope(std::shared_ptr<const LogTarget> target) noexcept
    : target(std::move(target)), formerTarget(std::exchange(threadTarget, this->target.get())),
      formerLevel(std::exchange(threadLogLevel(), this->target->level))
{
}

LogScope::~LogScope()
{
    threadTarget = formerTarget;
    threadLogLevel() = formerLevel;
}

} // namespace tonwerk::c
