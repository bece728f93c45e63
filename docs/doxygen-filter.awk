# Makes of a header what doxygen reads: the headers say what they say in plain comments.
#
#   awk -f docs/doxygen-filter.awk HEADER
#
# - The comment of the first line tells of the file.
# - A comment above declarations that stand together, without an empty line between them, tells of
#   all of them; one behind a declaration tells of that one. What copying and assigning do is told by
#   the class.
# - Lines of a comment that are indented are shown as they stand.
# - Nothing in a comment is a command, a tag or emphasis; what stands between backquotes is code.
#
# Every line stays where it is, so that the lines in doxygen's messages are those of the header.

# The text for doxygen, which is to take it as it is.
function Quote( aText,    lParts, lCount, lIndex, lResult )
{
    lCount = split( aText, lParts, "`" )
    for ( lIndex = 1; lIndex <= lCount; ++lIndex )
    {
        if ( lIndex % 2 == 1 )
        {
            gsub( /[\\@&<>#%*]/, "\\\\&", lParts[lIndex] )
        }
        lResult = lResult ( lIndex > 1 ? "`" : "" ) lParts[lIndex]
    }
    return lResult
}

function GetText( aComment )
{
    sub( /^ *\/\/\/? ?/, "", aComment )
    return aComment
}

# Whether line aIndex of the comment is shown as it stands: an indented one, or an empty one between
# two of them.
function IsVerbatim( aIndex )
{
    if ( aIndex < 1 || aIndex > mComments )
    {
        return 0
    }
    return mComment[aIndex] ~ /^  / ||
        ( mComment[aIndex] == "" && mComment[aIndex - 1] ~ /^  / && mComment[aIndex + 1] ~ /^  / )
}

# What is printed begins with the mark that ends the group before it.
function Print( aLine )
{
    print mMark aLine
    mMark = ""
}

function PrintComment( aOpening,    lIndex, lText )
{
    for ( lIndex = 1; lIndex <= mComments; ++lIndex )
    {
        lText = IsVerbatim( lIndex ) ? mComment[lIndex] : Quote( mComment[lIndex] )
        if ( !IsVerbatim( lIndex ) && IsVerbatim( lIndex + 1 ) )
        {
            lText = lText " @verbatim"
        }
        if ( IsVerbatim( lIndex ) && !IsVerbatim( lIndex + 1 ) )
        {
            lText = lText " @endverbatim"
        }
        Print( ( lIndex == 1 ? aOpening "/** " : "" ) lText ( lIndex == mComments ? " */" : "" ) )
    }
    mComments = 0
    mComment[0] = mComment[1] = ""
}

# Whether a line declares how objects of a class are copied, assigned or destroyed.
function IsSpecial( aLine,    lParts )
{
    split( aLine, lParts, "[( &]+" ) # the argument's type follows the name where it is a copy
    return aLine ~ /operator=\( const / || aLine ~ /~[A-Za-z0-9]+\(/ ||
        ( lParts[3] == "const" && lParts[2] == lParts[4] )
}

# Line aIndex of the declarations, with what stands behind it.
function Declare( aIndex, aHasComment,    lLine, lStart )
{
    lLine = mLine[aIndex]
    lStart = match( lLine, / \/\/ / )
    if ( lStart > 0 )
    {
        return substr( lLine, 1, lStart ) "///< " Quote( substr( lLine, lStart + 4 ) )
    }
    if ( IsSpecial( lLine ) && !( aHasComment && aIndex == 1 ) && lLine ~ /[;}]$/ )
    {
        return lLine " ///< See the class."
    }
    return lLine
}

# Prints the comment and the declarations that stand together below it.
function PrintRun(    lIndex, lHasComment, lIsGroup )
{
    lHasComment = mComments > 0
    lIsGroup = lHasComment && mDeclarations > 1
    PrintComment( lIsGroup ? "/**@{*/ " : "" )
    for ( lIndex = 1; lIndex <= mLines; ++lIndex )
    {
        Print( Declare( lIndex, lHasComment ) )
    }
    mMark = lIsGroup ? "/**@}*/ " : ""
    mLines = mDeclarations = 0
}

# How many braces a line opens, less those that it closes.
function CountBraces( aLine,    lOpened )
{
    sub( /\/\/.*/, "", aLine )
    lOpened = gsub( /\{/, "", aLine )
    return lOpened - gsub( /\}/, "", aLine )
}

function Take( aLine,    lCode )
{
    mLine[++mLines] = aLine
    mDepth += CountBraces( aLine )
    lCode = aLine
    sub( / *\/\/.*/, "", lCode )
    if ( mDepth == 0 && lCode ~ /[;}]$/ && ( mLines == 1 || !IsSpecial( lCode ) ) ||
         lCode ~ /^#define/ )
    {
        ++mDeclarations
    }
}

NR == 1 { mFile = GetText( $0 ); Print( "/// @file" ); next }
NR == 2 { Print( "/// " Quote( mFile ) ); next } # in place of "#pragma once"

# A body, an enumeration.
mDepth > 0 { Take( $0 ); next }

/^ *\/\/( |$)/ {
    if ( mLines > 0 )
    {
        PrintRun()
    }
    mComment[++mComments] = GetText( $0 )
    mComment[mComments + 1] = ""
    next
}

/^ *$/ || /^ *(public|protected|private):/ || /^ *}/ { PrintRun(); Print( $0 ); next }

# What opens a scope, whose contents are declarations of their own.
/^ *(class|struct|namespace) / && !/;/ { mIsScope = 1 }
mIsScope { PrintRun(); Print( $0 ); mIsScope = !/^ *\{/; next }

{ Take( $0 ) }

END {
    PrintRun()
    if ( mMark != "" )
    {
        Print( "" )
    }
}
