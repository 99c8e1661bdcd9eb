#pragma once

namespace NimaPost {

/// Takes the numbers of standard streams that the caller has closed, so that no file which is opened later
/// gets one: what is printed would go into it. Reading from or printing to a closed stream still fails.
void TakeClosedStreams();

} // namespace NimaPost
