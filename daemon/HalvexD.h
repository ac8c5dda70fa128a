// Start-up of the daemon: the engine run behind main().
#pragma once

namespace halvexd {

// Builds the engine and the monitors and runs them until a termination
// signal arrives on `signalFd`. True when the engine ran and returned; false
// when the engine, the factory or a monitor's init() failed. The last
// argument belongs to the start-up's call interface (main passes whether
// the configuration loaded); nothing reads it.
bool startEngine(int signalFd, unsigned long sampleInterval, unsigned long tickInterval,
                 bool optionsGiven, bool configLoaded);

}  // namespace halvexd
