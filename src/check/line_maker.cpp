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

MonthNames MonthNotInEnglish() {
  static const QStringList kMonths =
      QStringLiteral("Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec").split(QLatin1Char(' '));
  constexpr std::int64_t kSecondsOfMonth = 2'629'746;  // on average
  for (int month = 0; month < kMonths.size(); ++month) {
    const QString written =
        FormatDate(kSecondsOfMonth * month + kSecondsOfMonth / 2).section(QLatin1Char(' '), 0, 0);
    if (written != kMonths[month]) {
      return {written, kMonths[month]};
    }
  }
  return {};
}

}  // namespace ov
