#pragma once

#include <functional>

namespace linkhop {

// Lets the pending events run once and returns.
void LetEventsRun();

// Lets events run, sleeping while there are none, until `done` holds (true) or `timeoutMs` has
// passed (false). Anything can happen meanwhile, including the caller's window closing: `done`
// must check for that, and the caller must re-check its objects afterwards.
bool LetEventsRunUntil(const std::function<bool()>& done, int timeoutMs);

} // namespace linkhop
