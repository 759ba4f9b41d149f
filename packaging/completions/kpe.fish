# Completions of kpe for fish.

complete -c kpe -s d -d 'Show the code of the last key'
complete -c kpe -o nocommand -d 'Run no startup file'
complete -c kpe -o readonly -d 'Refuse commands that change text'
complete -c kpe -o recover -d 'Repeat the commands in the journal'
complete -c kpe -l help -d 'Print a summary and leave'
complete -c kpe -l version -d 'Print the version and leave'
complete -c kpe -o stop -d 'End a script at the first error'
complete -c kpe -o quiet -d 'Print neither banner nor prompts'
complete -c kpe -n 'string match -q -- "-*" (commandline -ct)' -a -command= -d 'Run this command file first'
complete -c kpe -n 'string match -q -- "-*" (commandline -ct)' -a -output= -d 'Have EXIT write to this file'
complete -c kpe -n 'string match -q -- "-*" (commandline -ct)' -a -journal= -d 'Keep the journal in this file'

complete -c kpe-editor -s R -d 'Write nothing'
complete -c kpe-editor -l help -d 'Print a summary and leave'
complete -c kpe-editor -l version -d 'Print the version and leave'

complete -c kpe-recover -n 'string match -q -- "-*" (commandline -ct)' -a --write= -d 'Write the text to another file'
complete -c kpe-recover -l edit -d 'Open the file with the text as an unsaved change'
complete -c kpe-recover -l at= -d 'The text as it was at that time'
complete -c kpe-recover -l buffer= -d 'The text of another buffer'
complete -c kpe-recover -l discard -d 'Remove what is kept for the file'
complete -c kpe-recover -l purge -d 'Remove everything that is kept'
complete -c kpe-recover -l help -d 'Print a summary and leave'
complete -c kpe-recover -l version -d 'Print the version and leave'

complete -c kpe-keys -f
complete -c kpe-keys -l help -d 'Print a summary and leave'
complete -c kpe-keys -l version -d 'Print the version and leave'
