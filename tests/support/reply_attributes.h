// The attributes of a reply document's User element, every optional one
// included, in the order front ends read them.
#pragma once

#include <string>
#include <vector>

namespace tarnwick::testing {

inline const std::vector<std::string> kReplyAttributes = {"Subject",           "Message",
                                                          "TaskType",          "OOOEnable",
                                                          "ShowHours",         "ASDEnable",
                                                          "AppendSubject",     "InternetAddress",
                                                          "StartTimeYear",     "StartTimeMonth",
                                                          "StartTimeDay",      "StartTimeHour",
                                                          "StartTimeMin",      "StartTimeSec",
                                                          "EndTimeYear",       "EndTimeMonth",
                                                          "EndTimeDay",        "EndTimeHour",
                                                          "EndTimeMin",        "EndTimeSec",
                                                          "DaysOut",           "DaysOut_S",
                                                          "DaysOut_V",         "DaysOutValue",
                                                          "AppendSubjectDate", "AppendSubjectDateValue",
                                                          "ResetSubject",      "DateFlag",
                                                          "AMString",          "PMString",
                                                          "DateString",        "TimeString",
                                                          "User_Status",       "Notified",
                                                          "BuildVersion"};

}  // namespace tarnwick::testing
