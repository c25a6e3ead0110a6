// The settings in force, each with where it comes from.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include "check/settings_file.h"

namespace ov {

struct SettingInForce {
  QString key;
  QString value;  ///< a switch as 0 or 1
  bool isText;
  Place place;  ///< without a line for a default
};

struct SettingsAnswer {
  QList<SettingInForce> settings;  ///< the thirteen keys, in a fixed order
  QByteArray digest;  ///< SHA-256 (FIPS 180-4) over "KEY=VALUE\n" of each, in hexadecimal
};

SettingsAnswer AnswerFor(const SettingsFile &file);

QByteArray AsText(const SettingsAnswer &answer);
QJsonObject AsJson(const SettingsAnswer &answer);

}  // namespace ov
