# Completion of rast for bash, which asks the command itself.
_rast() {
  local cur prev words cword
  _init_completion -n =: || return
  # A quotation mark that is still open belongs to the shell; without one, what bash completes begins
  # behind the last equals sign or colon.
  words[cword]=${cur#[\'\"]}
  local candidate meaning before='' last=${COMP_WORDS[COMP_CWORD]}
  [[ $cur == [\'\"]* ]] || before=${cur%"${last#[=:]}"}
  while IFS=$'\t' read -r candidate meaning; do
    if [[ -n $candidate ]]; then
      COMPREPLY+=("${candidate#"$before"}")
      [[ $candidate != *[=\ ]* ]] || compopt -o nospace
    else
      cur=${cur#"$before"} _filedir
    fi
  done < <("${words[0]/#\~/$HOME}" complete "${words[@]:1:cword}" 2>/dev/null)
} && complete -F _rast rast
