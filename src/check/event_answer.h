// What becomes of one event: the record as the service takes it, its definition, whether it is
// allowed, and its line.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <optional>

#include "check/definitions_file.h"
#include "check/settings_file.h"
#include "check/stored_answer.h"
#include "event/event_record.h"
#include "output/host_identity.h"

namespace ov {

struct EventAnswer {
  EventRecord record;
  QString id;                         ///< as the service looks it up
  QString values;                     ///< as the service takes them
  bool isCut;                         ///< whether the record lacks a part of what was given
  const DefinitionsLine *definition;  ///< null for an event that is not defined
  QString definitionsPath;
  QString meant;  ///< without a definition: the identifier that was probably meant
  bool isAllowed;
  Place allowedPlace;
  QByteArray line;  ///< as it is sent; empty if it is not
  std::int32_t priority;
  std::int32_t facility;
  std::int32_t severity;
  Protocol protocol;
  std::optional<StoredAnswer> stored;  ///< if it is forwarded and the template is known

  bool IsForwarded() const { return definition != nullptr && isAllowed; }
};

EventAnswer AnswerFor(const QByteArray &id, const QByteArray &values, const SettingsFile &settings,
                      const DefinitionsFile &definitions, const HostIdentity &host);

QByteArray AsText(const EventAnswer &answer);
QJsonObject AsJson(const EventAnswer &answer);

}  // namespace ov
