#pragma once

/// A test that tries many variants of one fault. In the long form, which `./run torture` asks for
/// by setting ZVUPDATE_TORTURE, it tries them all; otherwise so many that it takes about a second.
class Campaign
{
public:
    static bool isLong();

    /// The number that belongs to the form that is run.
    static int rounds(int inTheLongForm, int inTheShortForm);

    /// Says how many variants were tried, on the test's output and in its record.
    static void tried(int variants);
};
