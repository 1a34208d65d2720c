# Writes the manual page of the print filter: its name and use, and the guide, whose title is left out.
execute_process(COMMAND ${LOWDOWN} -Tman -m shiftheadinglevelby=-1 ${GUIDE}
  OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
if(NOT text MATCHES "^\\.SH\n[^\n]+\n\\.LP\n")
  message(FATAL_ERROR "${GUIDE}: lowdown does not begin its page with the title")
endif()
string(REGEX REPLACE "^\\.SH\n[^\n]+\n\\.LP\n(.*)$" "\\1" text "${text}")
string(REGEX REPLACE "(\\.SH\n[^\n]+\n)\\.LP\n" "\\1" text "${text}")
string(REPLACE "\\fC" "\\fB" text "${text}")
file(WRITE ${PAGE}
".TH rasttoraster 8 \"\" \"rast ${VERSION}\"
.SH NAME
rasttoraster \\- raster filters in a print queue
.SH SYNOPSIS
.B rasttoraster
.I job user title copies options
.RI [ file ]
.SH DESCRIPTION
${text}.SH SEE ALSO
.BR rast (1),
.BR rast\\-ops (7),
.BR cupsd.conf (5)
")
