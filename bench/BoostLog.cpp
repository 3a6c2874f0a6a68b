#include "bench/BoostLog.h"

#include <boost/log/attributes/clock.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/async_frontend.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_logger.hpp>
#include <boost/log/support/date_time.hpp>
#include <boost/smart_ptr/make_shared.hpp>

#include <cstddef>
#include <string>

namespace {

namespace logging = boost::log;

enum class Severity { kInfo };

class CountingBackend
    : public logging::sinks::basic_formatted_sink_backend<char,
                                                          logging::sinks::synchronized_feeding> {
public:
    void consume(const logging::record_view& /*record*/, const std::string& line) {
        mBytes += line.size();
    }

private:
    std::size_t mBytes = 0;
};

using AsynchronousSink = logging::sinks::asynchronous_sink<CountingBackend>;

} // namespace

struct BoostLog::Sink {
    boost::shared_ptr<AsynchronousSink> mFrontend = boost::make_shared<AsynchronousSink>();
};

BoostLog::BoostLog() : mSink(std::make_unique<Sink>()) {
    logging::core::get()->add_global_attribute("TimeStamp", logging::attributes::local_clock());
    mSink->mFrontend->set_formatter(
        logging::expressions::stream
        << logging::expressions::format_date_time<logging::attributes::local_clock::value_type>(
               "TimeStamp", "%H:%M:%S.%f")
        << " " << logging::expressions::smessage);
    logging::core::get()->add_sink(mSink->mFrontend);
}

BoostLog::~BoostLog() {
    logging::core::get()->remove_sink(mSink->mFrontend);
    mSink->mFrontend->stop();
    mSink->mFrontend->flush();
}

void BoostLog::Log(int channel, long long at, double value) const {
    thread_local logging::sources::severity_logger<Severity> logger;
    BOOST_LOG_SEV(logger, Severity::kInfo)
        << "channel " << channel << " at " << at << ": " << value;
}
