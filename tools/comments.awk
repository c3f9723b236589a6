# SPDX-License-Identifier: Apache-2.0
# Finds comments that a formatter has wrapped without knowing what they are: a remainder of a few words on a line of its
# own, and an item ("Errors   ...") in the middle of a line. Prints them, and exits with 1 if there are any.

function report(line, what) {
    printf "%s:%d: %s\n", FILENAME, line, what
    found = 1
}

# Whether the former line ends early, with no reason to: the next word would have fitted.
function isRemainder(    words) {
    split(text, words, " ")
    if (formerText == "" || text == "" || formerText ~ /[.:;?!]$/ || formerLength + 1 + length(words[1]) > 100) {
        return 0
    }
    if (length(lead) > length(formerLead)) {
        return formerText !~ /  |--/ && text !~ /^-/  # else the beginning of a list, or of a picture
    }
    return lead == formerLead && split(formerText, words, " ") <= 2 && formerText text !~ /  |SPDX|^\|/  # nor of a table
}

FNR == 1 { formerText = "" }

match($0, /^ *\/\/[\/!]?<? */) {
    lead = substr($0, 1, RLENGTH)
    text = substr($0, RLENGTH + 1)
    if (isRemainder()) {
        report(FNR - 1, "\"" formerText "\" stands alone on its line")
    }
    if (text ~ /[^ ] +(Values|Result|Errors|Threads)  /) {
        report(FNR, "an item in the middle of a line")
    }
    formerLead = lead
    formerText = text
    formerLength = length($0)
    next
}

{ formerText = "" }

END { exit found }
