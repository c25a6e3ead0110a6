// Every process-wide object. They are constructed in the order in which they stand here, before
// main, and destroyed in the reverse order when the process ends: the queue, which others feed,
// comes last and so goes first, and the settings, which others read, come first and go last.
// Nothing else in the program has a constructor at namespace scope.
#include "config/settings.h"
#include "output/host_identity.h"
#include "output/message_formatter.h"
#include "output/tcp_syslog_sender.h"
#include "output/udp_syslog_sender.h"
#include "service/event_catalogue.h"
#include "service/event_queue.h"

namespace ov {

Settings g_settings;
EventCatalogue g_eventCatalogue;
MessageFormatter g_messageFormatter;
UdpSyslogSender g_udpSyslogSender;
TcpSyslogSender g_tcpSyslogSender;
QString g_hostAddressText;
QString g_hostNameText;
EventQueue g_eventQueue;

}  // namespace ov
