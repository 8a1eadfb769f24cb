// The set flow's date validation and reset, and the calendar busy-time
// entry, are not part of the task yet. The agent switches call them; until
// they exist these do nothing: no validation, no busy-time entry, no reset
// of the profile's dates.
#include "request/IPOOO.h"

int IPOOO::ValidateSettings() { return 1; }
int IPOOO::BookBusyTime() { return 0; }
int IPOOO::RemoveBusyTime() { return 0; }
int IPOOO::ResetDateTime(int) { return 0; }
