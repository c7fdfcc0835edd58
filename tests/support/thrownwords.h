#pragma once

#include <string>

#include <gtest/gtest.h>

#include <nbx/object/exception.h>

/// What the `NBX::InputException` says that `work` throws.
template <class Work> std::string thrown(const Work & work) {
    try {
        work();
    } catch (const NBX::InputException & exception) {
        return exception.what();
    }
    return "nothing was thrown";
}

inline void expectPart(const std::string & text, const std::string & part) {
    EXPECT_NE(std::string::npos, text.find(part)) << text;
}
