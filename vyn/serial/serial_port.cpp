#include "vyn/serial/serial_port.h"

CVYNSerialPort::CVYNSerialPort() = default;

CVYNSerialPort::~CVYNSerialPort() = default;
