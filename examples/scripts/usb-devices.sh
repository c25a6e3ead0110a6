#!/bin/sh
# The USB devices that are plugged in, one line each, sorted, for the USB device monitor, which runs
# this every 3 seconds and takes each distinct line for a device:
#
#   046d:c31c Logitech USB Keyboard
#   046d:c31c #2 Logitech USB Keyboard
#   0951:1666 serial=60A44C413FAE Kingston DataTraveler 3.0
#
# That is vendor and product number, the serial number and the names of maker and product, as far as
# the device has them. Nothing in a line depends on the bus or the port, or changes while the device
# is plugged in. Devices that tell the same of themselves are numbered from the second on: which of
# them was unplugged cannot be known, so it is always the highest number that goes.
#
# Not printed: interfaces, which are parts of devices; root hubs; and hubs that the firmware says are
# fixed in the machine. Other hubs are (in a dock, a keyboard), and so are fixed devices such as a
# camera.
#
# Each byte of a name that is neither printable nor part of a well-formed UTF-8 character becomes
# "?", and blanks at the ends or in a row are dropped. A line ends, between two characters, within
# the 127 bytes that an event can carry.
#
# OV_USB_DEVICES names another folder than /sys/bus/usb/devices, for tests and demonstrations.
#
# Install as /usr/lib/orvan/ov-event-logger/usb-devices.sh.
LC_ALL=C
export LC_ALL

exec awk '
BEGIN {
    BYTES = 127
    TAIL = "[\200-\277]"
    # Without the control characters U+0080 to U+009F, the second half of which is \302\200-\237.
    CHARACTER = "^([ -~]|\302[\240-\277]|[\303-\337]" TAIL \
        "|\340[\240-\277]" TAIL "|[\341-\354\356\357]" TAIL TAIL "|\355[\200-\237]" TAIL \
        "|\360[\220-\277]" TAIL TAIL "|[\361-\363]" TAIL TAIL TAIL "|\364[\200-\217]" TAIL TAIL ")"

    for (i = 1; i < ARGC; i++) add(ARGV[i])
    for (i = 1; i <= count; i++) print lines[i]
}

function add(folder,    name, text, serial, maker, product, id, line) {
    name = folder
    sub(/.*\//, "", name)
    if (name ~ /^usb[0-9]+$/ || name ~ /:/) return
    serial = attribute(folder, "serial")
    maker = attribute(folder, "manufacturer")
    product = attribute(folder, "product")
    if (attribute(folder, "bDeviceClass") == "09" && attribute(folder, "removable") == "fixed") return
    # Last, since the kernel removes these first: a device that is being unplugged has none, and is
    # not taken for another one without names.
    id = attribute(folder, "idVendor") ":" attribute(folder, "idProduct")
    if (id ~ /^:|:$/) return

    text = (serial == "" ? "" : " serial=" serial) (maker == "" ? "" : " " maker) \
        (product == "" ? "" : " " product)
    line = cut(id text)
    if (++seen[line] > 1) line = cut(id " #" seen[line] text)
    insert(line)
}

# What is in a file, as clean text; the empty text if there is none.
function attribute(folder, file,    path, text, line, clean) {
    path = folder "/" file
    while ((getline line < path) > 0) text = text (text == "" ? "" : "?") line
    close(path)
    while (text != "") {
        if (match(text, CHARACTER)) {
            clean = clean substr(text, 1, RLENGTH)
            text = substr(text, RLENGTH + 1)
        } else {
            clean = clean "?"
            text = substr(text, 2)
        }
    }
    gsub(/  +/, " ", clean)
    gsub(/^ | $/, "", clean)
    return clean
}

function cut(line,    kept) {
    kept = substr(line, 1, BYTES)
    if (substr(line, BYTES + 1, 1) ~ TAIL) sub("[\300-\377]" TAIL "*$", "", kept)
    return kept
}

function insert(line,    i) {
    for (i = ++count; i > 1 && lines[i - 1] > line; i--) lines[i] = lines[i - 1]
    lines[i] = line
}' "${OV_USB_DEVICES:-/sys/bus/usb/devices}"/*
