#pragma once

#include <functional>
#include <string>

/// Whether a word names one of the ways a device host can be told to die: fatal, exception, exit, segv,
/// abort, terminate or report.
bool IsWayToDie(const std::string& how);

/// What a host sets before anything can be captured.
void PrepareForCrashes();

/// Dies that way. Returns only for a word that is not one of them.
void Die(const std::string& how);

/// Runs the device in a child process and stands in for the notification service meanwhile: prints each
/// datagram that arrives, and how the device ended. Returns 0 if it did end, by whatever it was told to.
int WatchOver(const std::function<void()>& device);
