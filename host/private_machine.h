#pragma once

#include <string>

// A machine of the demo's own: its /etc and /var are throw-away copies, in which the product's
// paths are absent.

// Where the demo keeps what an installation and a BMC would have, below the product's paths.
constexpr char DEMO_FILE_ROOT[] = "/var/log/Talvor/bin";
constexpr char DEMO_DATA_ROOT[] = "/var/log/Talvor/data";
constexpr char DEMO_BMC[] = "/var/log/Talvor/bmc";

// Returns when the program runs in a private machine; otherwise restarts it in one with the same
// arguments and does not return. Throws CHostError.
void EnterPrivateMachine(char** arguments);

// Makes the directories of the demo and copies the program `collector` to where the module looks
// for it. Throws CHostError.
void InstallDemoCollector(const std::string& collector);

// Writes a registry that names the directories of the demo. Throws CHostError.
void WriteDemoRegistry();
// Puts a collector that hangs in the place of the demo's own, and settings for the guard that end
// it after two seconds. Throws CHostError.
void InstallDemoGuard();
