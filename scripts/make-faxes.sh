#!/bin/bash
# usage: scripts/make-faxes.sh [-n PAGES] [--big] DIR
#
# Makes sample faxes in DIR, real pages as a fax machine would send them:
#   letter-mh.fax   a letter, 98 lines an inch, T.4 one-dimensional
#   form-mr.fax     a delivery note, 196 lines an inch, T.4 two-dimensional
#   letter-mmr.fax  a letter, 196 lines an inch, T.6
#   big-mh.fax      with --big: a price list of many pages, about 1 MB
# PAGES is the number of pages of each of the first three (1). The same call gives the same bytes.
# Ghostscript draws and codes the pages, wrap_fax.py puts them into fax files and has libtiff read them
# back: what it decodes must be what was drawn.
set -euo pipefail

usage() { sed -n 's/^# usage: /usage: /p' "$0" >&2; exit 2; }

pages=1 big=no dir=
while [ $# -gt 0 ]; do
    case $1 in
    -n) [ $# -gt 1 ] || usage; pages=$2; shift ;;
    --big) big=yes ;;
    -*) usage ;;
    *) [ -z "$dir" ] || usage; dir=$1 ;;
    esac
    shift
done
[ -n "$dir" ] && [[ $pages =~ ^[1-9][0-9]{0,2}$ ]] || usage

for tool in gs tiffcp python3; do
    command -v $tool >/dev/null || { echo "make-faxes.sh: $tool is missing (apt install ghostscript libtiff-tools python3)" >&2; exit 1; }
done
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$dir"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cat >"$work/pages.ps" <<'PS'
%!PS-Adobe-3.0
% Draws `pages` pages of `kind`; both are defined on the command line. All lengths in points.
/left 60 def  /right 550 def  /x left def  /y 0 def  /leading 14 def

/font { findfont exch scalefont setfont } def                       % size name font -
/down { /y y leading 4 -1 roll mul sub def } bind def               % lines down -
/at { y moveto show } def                                           % text x at -
/line { left at 1 down } def                                        % text line -
/word {                                                             % text word -
    dup stringwidth pop x add right gt { /x left def 1 down } if
    x y moveto show ( ) show currentpoint pop /x exch def
} def
/para {                                                             % text para -
    /x left def
    { ( ) search { word pop } { word exit } ifelse } loop
    2 down
} def
/number { 12 string cvs } def                                       % int number text
/one_of { dup length rand exch mod get } def                        % array one_of any
/page_line {                                                        % page page_line -
    8 /Helvetica font
    left 40 moveto (Page ) show number show ( of ) show pages number show
} def

/words [ (bracket) (washer) (hinge) (bolt) (valve) (gasket) (coupling) (bearing) (spindle) (clamp)
         (flange) (lever) (pulley) (spring) (shackle) (socket) ] def
/metals [ (brass) (steel) (bronze) (zinc) (copper) (alloy) ] def
/sizes [ (8 mm) (12 mm) (16 mm) (20 mm) (1/4 in) (3/8 in) (1/2 in) (2 in) ] def

/letter {                                                           % page letter -
    /y 770 def  /leading 15 def
    22 /Times-Bold font (Harbour & Quay, Ship Chandlers) line
    10 /Times-Roman font (14 Ropewalk, Port Ansel        Telephone 555 0142        Fax 555 0143) line
    left y moveto right y lineto 1 setlinewidth stroke
    2 down
    12 /Times-Roman font
    (12 March 1999) 440 at
    (Mr T. Olsen) line (Northern Ferries) line (Port Ansel) line
    1 down
    (Dear Mr Olsen,) line
    1 down
    (thank you for your letter of the 8th. The bearings for the stern ramp left our works on Tuesday and
should reach you with the morning boat on Friday. As you asked, the two spare spindles travel in the same
crate; please have somebody at the quay who can sign for them, since the crew will not leave the crate
unattended.) para
    (The brass couplings are another matter. The foundry has put us off until the first week of April, and
I would rather tell you so now than promise a date that I cannot keep. Should the old ones not last until
then, we can lend you a pair from our own stores at no charge.) para
    (I enclose the delivery note and this month's price list. Do let me know by fax or telephone whether
Friday suits you.) para
    (Yours sincerely,) line
    3 down
    14 /Times-Italic font (Agnes Quay) line
    page_line
} def

/form {                                                             % page form -
    dup srand
    /y 775 def  /leading 20 def
    20 /Helvetica-Bold font (DELIVERY NOTE) line
    10 /Helvetica font
    (Note no.) left at dup 4400 add number 120 at  (Date) 300 at (12-03-1999) 350 at 1 down
    (Customer) left at (Northern Ferries, Port Ansel) 120 at  (Boat) 300 at (MV Grebe, 07:40) 350 at
    1.5 down
    0.6 setlinewidth
    /top y def
    [ (Item) (Description) (Size) (Quantity) (Checked) ] [ 60 130 330 410 480 ]
    0 1 4 { dup 3 index exch get exch 2 index exch get 4 add at } for pop pop
    1 down
    1 1 24 {
        left y 15 add moveto right y 15 add lineto stroke
        number 64 at
        metals one_of 134 at ( ) show words one_of show
        sizes one_of 334 at
        rand 40 mod 1 add number 414 at
        484 y 2 sub 10 10 rectstroke
        1 down
    } for
    [ 60 130 330 410 480 550 ] { dup top 15 add moveto y 15 add lineto stroke } forall
    left top 15 add right left sub y top sub rectstroke
    0.5 down
    (Received in good order, name and signature) line
    left y moveto 300 0 rlineto stroke
    page_line
} def

/prices {                                                           % page prices -
    dup srand
    /y 790 def  /leading 8.2 def
    14 /Helvetica-Bold font (Harbour & Quay, price list, spring 1999) line 1 down
    6.5 /Times-Roman font
    85 {
        [ 60 310 ] {
            /x exch def
            rand 90000 mod 10000 add number x at
            metals one_of x 35 add at ( ) show words one_of show
            (, ) show sizes one_of show (, for ) show words one_of show ( ) show sizes one_of show
            rand 400 mod number x 190 add at (.) show rand 90 mod 10 add number show
            ( per ) show rand 9 mod 1 add number show
        } forall
        1 down
    } repeat
    page_line
} def

1 1 pages { kind cvx exec showpage } for
PS

# make NAME KIND PAGES LINES-AN-INCH DEVICE ATTRIBUTE...
make() {
    local name=$1 kind=$2 count=$3 lpi=$4 device=$5
    shift 5
    local lines=$((lpi * 1143 / 98))      # of an A4 page
    local draw=(gs -q -dSAFER -dBATCH -dNOPAUSE "-r204x$lpi" "-g1728x$lines" "-skind=$kind" "-dpages=$count")
    rm -f "$work"/page-*
    "${draw[@]}" "-sDEVICE=$device" "-sOutputFile=$work/page-%03d.fax" "$work/pages.ps"
    "${draw[@]}" -sDEVICE=pbmraw "-sOutputFile=$work/page-%03d.pbm" "$work/pages.ps"
    python3 "$here/wrap_fax.py" "$device" "$lines" "$work" "$work/made" "#PAGES:$count" "$@"
    mv "$work/made" "$dir/$name"
    echo "$dir/$name: $count pages, $(stat -c %s "$dir/$name") bytes"
}

make letter-mh.fax letter "$pages" 98 faxg3 "SENDER_FAX#:+99 555 0143" "T30_SUB_FRAME:2041" "T30_PWD_FRAME:" \
    "RESOLUTION:0" "COMPRESSION:0"
make form-mr.fax form "$pages" 196 faxg32d "SENDER_FAX#:+99 555 0143" "T30_SUB_FRAME:2042" "T30_PWD_FRAME:7781" \
    "RESOLUTION:1" "COMPRESSION:1"
make letter-mmr.fax letter "$pages" 196 faxg4 "SENDER_FAX#:+99 555 0199" "T30_SUB_FRAME:" "T30_PWD_FRAME:" \
    "RESOLUTION:1" "COMPRESSION:3"
if [ $big = yes ]; then
    make big-mh.fax prices 10 196 faxg3 "SENDER_FAX#:+99 555 0143" "T30_SUB_FRAME:2041" "T30_PWD_FRAME:" \
        "RESOLUTION:1" "COMPRESSION:0"
fi
