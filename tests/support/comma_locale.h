// A locale as a German host has it: decimal comma, grouped digits.
#pragma once

#include "support/child.h"
#include "support/scratch.h"

#include <clocale>
#include <cstdlib>
#include <gtest/gtest.h>
#include <locale>

/// In force as long as it lives; compiled on the spot, since no test may depend on what a machine has installed.
class CommaLocale
{
public:
    CommaLocale()
    {
        support::write_file(m_folder.file("comma.src"), "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\n"
                                                        "grouping 3;3\nEND LC_NUMERIC\nLC_CTYPE\nEND LC_CTYPE\n");
        support::run({"localedef", "-c", "-i", m_folder.file("comma.src"), m_folder.file("comma")});
        setenv("LOCPATH", m_folder.path().c_str(), 1);
        EXPECT_NE(setlocale(LC_NUMERIC, "comma"), nullptr);
        EXPECT_STREQ(localeconv()->decimal_point, ",");
    }

    ~CommaLocale()
    {
        setlocale(LC_NUMERIC, "C");
        unsetenv("LOCPATH");
    }

private:
    support::ScratchFolder m_folder;
};
