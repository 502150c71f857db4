#pragma once

#include <string>

// A machine of the demo's own: its /etc and /var are throw-away copies, in which the product's
// paths are absent.

// Where the demo keeps what an installation and a BMC would have, all of it below the product's
// paths there.
constexpr char DEMO_FILE_ROOT[] = "/var/log/Talvor/bin";
constexpr char DEMO_DATA_ROOT[] = "/var/log/Talvor/data";
constexpr char DEMO_BMC[] = "/var/log/Talvor/bmc";

// Returns in a private machine: at once when the program runs in one, else the program starts again
// in one, with the same arguments. Throws CHostError.
void EnterPrivateMachine(char** arguments);

// Makes the directories of the demo and copies the program `collector` to where the module looks
// for it. Throws CHostError.
void InstallDemoCollector(const std::string& collector);

// Writes a registry that names the directories of the demo. Throws CHostError.
void WriteDemoRegistry();
