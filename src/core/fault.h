#pragma once

namespace linkhop {

// Thrown while one received datagram is handled (a bad number, a name missing from the roster).
// The receiver catches it and drops the rest of that datagram; changes made so far stay.
struct Fault
{
    const char* reason;
};

} // namespace linkhop
