// What the code under test reports.
#ifndef QX_REPORTS_H
#define QX_REPORTS_H

#include <gtest/gtest.h>
#include <sstream>
#include <string>

// Runs Call and returns its reports: of "../src/Config 504 : Sat Nov 14 23:09:01 Erreur.\n" it
// keeps "Config: Erreur.\n". Other lines on standard output are kept as they are.
template <typename CALL>
std::string get_Reports(CALL Call)
{
    testing::internal::CaptureStdout();
    Call();
    std::istringstream Out(testing::internal::GetCapturedStdout());
    std::string Reports;
    for (std::string Line; std::getline(Out, Line);) {
        const size_t Stamp = Line.find(" : ");
        if (Line.rfind("../src/", 0) == 0 && Stamp != std::string::npos)
            Line = Line.substr(7, Line.find(' ') - 7) + ": " + Line.substr(Stamp + 3 + 20);
        Reports += Line + "\n";
    }
    return Reports;
}

#endif
