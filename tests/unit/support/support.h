// What most unit tests use, precompiled.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QString>
#include <QStringList>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/collectors.h"
#include "support/descriptors.h"
#include "support/events.h"
#include "support/files.h"
#include "support/output.h"
#include "support/polling.h"
#include "support/programs.h"
#include "support/rows.h"
#include "support/wrapped_calls.h"
