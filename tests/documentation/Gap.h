// A header that tells of all but one declaration.
#pragma once

// Told of.
class HTBASE_API Gap
{
public:
    // Told of together.
    void First();
    void Second();

    void Third();  // told of alone
    void Fourth(); // likewise

    Gap( const Gap& aOther );
    Gap& operator=( const Gap& aOther );

    void Untold();
};
