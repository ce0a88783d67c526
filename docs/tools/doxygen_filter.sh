#!/bin/sh
# Turns the comments of a header into the form that doxygen reads.
exec sed -E -e '/\/\//s|<([a-zA-Z_ ]+)>|\&lt;\1\&gt;|g' -e 's/ *NOLINT(BEGIN|END).*//' -e 's|^( *)// |\1/// |' -e 's|^( *)//$|\1///|' -e 's|([;,{]) +// |\1  ///< |' "$1"
