#compdef KVScheduler
_arguments \
  '(- *)'{-h,--help}'[show the help]' \
  '(- *)--version[show the version]' \
  '--bundle[run the host script of this folder]:bundle:_files -/'
