#include "check/line_maker.h"

#include "output/tcp_syslog_sender.h"

namespace ov {

LineMaker::LineMaker(const Settings &settings, const HostIdentity &host)
    : context_{settings.facility(), host, {}}, protocol_(settings.protocol()) {
  formatter_.SetTemplate(settings.formatString());
}

QByteArray LineMaker::LineFor(const EventRecord &record, const EventDefinition &definition) {
  const QString line = formatter_.FormatEvent(record, definition, context_);
  return protocol_ == Protocol::kTcp ? TcpSyslogSender::Frame(line) : line.toUtf8();
}

}  // namespace ov
