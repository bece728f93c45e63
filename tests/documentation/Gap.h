/// @file
/// A header that documents all but one declaration.
#pragma once

/// Documented.
class HTBASE_API Gap
{
public:
    /// Documented together.
    ///@{
    void First();
    void Second();
    ///@}

    void Third();  ///< documented alone
    void Fourth(); ///< likewise

    /// Documented together.
    ///@{
    Gap( const Gap& aOther );
    Gap& operator=( const Gap& aOther );
    ///@}

    void Untold();
};
