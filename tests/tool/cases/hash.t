hash prints the SHA-512 digest of a file's bytes in base64, as OpenSSL gives it (sizes and edge
cases: the gateway's content-hash test).

  $ printf 'abc' > abc.txt && zvaddon hash abc.txt
  3a81oZNherrMQXNJriBBMRLm+k6JqX6iCp7u5ktV05ohkpkqJ0/BqDa6PCOj/uu9RU1EI2Q86A4qmslPpUyknw==
