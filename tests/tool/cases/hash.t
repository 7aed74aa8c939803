hash prints the SHA-512 digest of any file's bytes in base64: the same text OpenSSL gives.

  $ printf 'abc' > abc.txt
  $ zvaddon hash abc.txt
  3a81oZNherrMQXNJriBBMRLm+k6JqX6iCp7u5ktV05ohkpkqJ0/BqDa6PCOj/uu9RU1EI2Q86A4qmslPpUyknw==
  $ : > empty.txt
  $ zvaddon hash empty.txt
  z4PhNX7vuL3xVChQ1m2AB9Yg5AULVxXcg/SpIdNs6c5H0NE8XYXysP+DGNKHfuwvY7kxvUdBeoGlODJ6+SfaPg==
  $ head -c 100000 /dev/urandom > random.bin
  $ test "$(zvaddon hash random.bin)" = "$(openssl dgst -sha512 -binary random.bin | base64 -w0)" && echo same
  same
