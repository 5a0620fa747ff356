#pragma once

#include "Report.h"

/// What stands under each heading of a report.
namespace host::output::sections {

std::string summary(const ReportContent& content);
std::string routes(const ReportContent& content);
std::string unresolved(const ReportContent& content);
std::string flows(const ReportContent& content);
std::string graph(const ReportContent& content);
std::string history(const ReportContent& content);
std::string input(const ReportContent& content);
std::string versions(const ReportContent& content);

}  // namespace host::output::sections
