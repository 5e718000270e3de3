// report_files.h - the page of a report with places {{...}} to fill, its style and its script.
#ifndef VQNS_REPORT_FILES_H
#define VQNS_REPORT_FILES_H

namespace vqns_tool {

extern const char kReportPage[], kReportStyle[], kReportScript[];

}  // namespace vqns_tool

#endif
