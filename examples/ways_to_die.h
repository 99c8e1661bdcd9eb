#pragma once

#include <functional>
#include <string>

/// Whether a word names one of the ways a device host can be told to die: fatal, exception, exit, segv,
/// abort, terminate or report.
bool IsWayToDie(const std::string& how);

/// What a host sets before anything can be captured.
void PrepareForCrashes();

/// Dies in that way. Returns only if the word is not one of them.
void Die(const std::string& how);

/// Runs the device in a child process and meanwhile plays the notification service: prints each datagram that
/// arrives, and how the device ended. Returns 0 if it ended, in whatever way it was told to.
int WatchOver(const std::function<void()>& device);
