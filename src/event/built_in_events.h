// The identifiers of the events that the built-in monitors raise.
#pragma once

namespace ov {

constexpr char kCpuThresholdReached[] = "perf01";
constexpr char kMemThresholdReached[] = "perf02";
constexpr char kDiskThresholdReached[] = "perf03";
constexpr char kUsbDevicePresent[] = "sys05";
constexpr char kUsbDeviceAdded[] = "sys06";
constexpr char kUsbDeviceRemoved[] = "sys07";
constexpr char kSigninSucceeded[] = "sec03";
constexpr char kSigninFailed[] = "sec04";
constexpr char kAgentConnected[] = "net02";  // or a certificate warning, told by its values
constexpr char kAgentFailed[] = "net03";

}  // namespace ov
